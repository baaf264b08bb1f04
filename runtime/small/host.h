// What a host program does with the small runtime: make objects, hand them to entry points, read
// what comes back, and give the memory back. The module itself never sees this header.
//
// An object is an untyped pointer, as in the module's own interface, and null is the language's
// null. Everything here may be called from any thread. Reading from an object what it does not have
// (the bytes of a list, the text of null) gives the empty answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/operations.h"

namespace quen::small {

// Objects and how long they live.

class Arena;

// Owns the objects that its thread makes while it is the innermost scope there, and destroys them
// when it closes. The scopes of a thread close in the reverse order of opening. Objects made
// outside every scope live as long as the process.
//
//   for (const std::string& text : texts) {
//     quen::small::Scope scope;
//     use(quen_io_Path_normalize(quen::small::newPath(text)));
//   }  // memory stays bounded, however many texts there are
class Scope {
 public:
  Scope();

  // Makes this thread's objects belong to `shared`, opened by any thread and closed after this.
  explicit Scope(Scope* shared);

  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  std::unique_ptr<Arena> own_;  // none when shared
  Arena* arena_;
  Arena* outer_;
};

// New path objects with the text as their "_path". Their parent-traversal field is false.
void* newPath(std::string_view text);
void* newFolderPath(std::string_view text);
void* newFilePath(std::string_view text);

// A new String of exactly these bytes.
void* newString(std::string_view bytes);

// A new Byte[] of this length, all zero, or with these bytes. Its length never changes.
void* newByteArray(std::size_t length);
void* newByteArray(const std::vector<std::uint8_t>& bytes);

// A new object of a class that is built in or was defined; null when the class is unknown.
void* newObject(std::string_view className);

// Adds a class below a known one, both by qualified name; it inherits the fields of the superclass.
// The classes built in are Object, String, Byte[], quen.collections.ArrayList, quen.io.Path,
// quen.io.FolderPath and quen.io.FilePath. False when the name is taken, the superclass unknown, or
// an object of the class would have more than six fields.
bool defineClass(std::string_view qualifiedName, std::string_view superclass,
                 const std::vector<std::string>& fields);

// How many objects are alive in all scopes together.
std::size_t liveObjects();

// Reading what came back.

// The qualified name of the object's class; "" for what is no object.
std::string className(void* object);

// The bytes of a String.
std::string stringBytes(void* string);

// The elements of an ArrayList, and the bytes of each when they are Strings.
std::vector<void*> listElements(void* list);
std::vector<std::string> listStrings(void* list);

// The contents of a Byte[].
std::vector<std::uint8_t> byteArrayContents(void* array);

// The text of a path object; none when it has no path.
std::optional<std::string> pathText(void* path);

// Whether the path object's sticky flag is set.
bool hasParentTraversal(void* path);

// Whether the object is a FolderPath.
bool isFolderPath(void* object);

// Exceptions.

// What Quen_raise was given.
struct Exception {
  std::string className;
  std::string message;
};

// Takes the exception that is pending on this thread, if any; none is pending afterwards. While one
// is pending, another that is raised is dropped: the first is the cause.
std::optional<Exception> takeException();

// Kinds of entries.
//
// A query always asks the system, so that it never tells of an entry that has gone since. What a
// listing recorded is for whoever walks the folder right after it and would rather not ask again.

// What is neither a regular file nor a directory.
inline constexpr QuenPathEntryKind kMissingEntry{0};
inline constexpr QuenPathEntryKind kOtherEntry{3};

// The kind that was last recorded for the path, links followed. None when it was not recorded, or
// so long ago that it has made room: the last 32,768 at least are kept, but no more than 16 MiB.
std::optional<QuenPathEntryKind> recordedKind(const std::filesystem::path& path);

// How many kinds are on record.
std::size_t recordedKinds();

// Empties the record.
void forgetRecordedKinds();

}  // namespace quen::small
