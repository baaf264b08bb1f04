// The embedding interface of the small runtime: a host program creates objects, passes them to
// entry points, reads the results and frees the memory. The module itself does not include this
// header.
//
// A host of another language copies values in and out by it, instead of writing the operations of
// quen/io/operations.h over its own objects (docs/embedding.md, "The copying layer"). Within a
// major version nothing is removed from this header and nothing changes its meaning.
//
// An object is an untyped pointer, as in the module's own interface, and null is the language's
// null. All functions may be called from any thread. Reading a property that an object does not
// have (the bytes of a list, the text of null) returns an empty value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/operations.h"
#include "quen/io/runtime_parts.h"

namespace quen::small {

// Objects and their lifetime.

class Arena;

// Owns the objects that its thread creates while it is the innermost scope of the thread, and
// destroys them at its end. Scopes of a thread are nested. Objects created outside of all scopes
// live as long as the process.
//
//   for (const std::string& text : texts) {
//     quen::small::Scope scope;
//     use(quen_io_Path_normalize(quen::small::newPath(text)));
//   }  // memory use is bounded, independent of the number of texts
class Scope {
 public:
  Scope();

  // Lets `shared` own this thread's objects. Any thread may have created it; it has to outlive this
  // scope.
  explicit Scope(Scope* shared);

  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  std::unique_ptr<Arena> own_;  // none when shared
  Arena* arena_;
  Arena* outer_;
};

// New path objects with the text as their "_path".
void* newPath(std::string_view text, bool parentTraversal = false);
void* newFolderPath(std::string_view text, bool parentTraversal = false);
void* newFilePath(std::string_view text, bool parentTraversal = false);

// A new String of exactly these bytes.
void* newString(std::string_view bytes);

// A new Byte[] of this length, all zero, or with these bytes. Its length never changes.
void* newByteArray(std::size_t length);
void* newByteArray(std::vector<std::uint8_t> bytes);

// A new object of a built-in or defined class; null if the class is unknown.
void* newObject(std::string_view className);

// Defines a subclass of a known class, both by qualified name; it inherits the superclass's fields.
// The built-in classes are Object, String, Byte[], quen.collections.ArrayList, quen.io.Path,
// quen.io.FolderPath and quen.io.FilePath. False when the name is taken, the superclass unknown, or
// an object of the class would have more than six fields.
bool defineClass(std::string_view qualifiedName, std::string_view superclass,
                 const std::vector<std::string>& fields);

// The number of live objects in all scopes.
std::size_t liveObjects();

// Reading results.

// The qualified name of the object's class; "" if the pointer is not an object.
std::string className(void* object);

// The bytes of a String, and how many they are. The view is valid as long as the String.
std::string stringBytes(void* string);
std::string_view stringView(void* string);
std::size_t stringLength(void* string);

// The elements of an ArrayList, and the bytes of each when they are Strings.
std::vector<void*> listElements(void* list);
std::vector<std::string> listStrings(void* list);

// The contents of a Byte[], and their first bytes, as many as `target` has room for; the number of
// bytes copied.
std::vector<std::uint8_t> byteArrayContents(void* array);
std::size_t copyByteArray(void* array, std::span<std::uint8_t> target);

// The text of a path object; none if it has no path.
std::optional<std::string> pathText(void* path);

// Whether the path object's sticky parent-traversal flag is set.
bool hasParentTraversal(void* path);

// Whether the object is a FolderPath.
bool isFolderPath(void* object);

// Exceptions.

// The arguments of Quen_raise, and how the pending exception of this thread is taken.
using parts::Exception;
using parts::takeException;

// Kinds of entries.
//
// Queries always ask the system, so that they never report an entry that is gone. The kinds
// recorded by a listing are a cache for a program that walks the folder right afterwards.

// The kind of everything that is neither a regular file nor a directory.
using parts::kMissingEntry;
using parts::kOtherEntry;

// The kind recorded last for the path, links followed. None if it was not recorded or was evicted:
// at least the last 32,768 kinds are kept, unless their paths take more than 8 MiB.
std::optional<QuenPathEntryKind> recordedKind(const std::filesystem::path& path);

// The number of recorded kinds.
std::size_t recordedKinds();

// Forgets all recorded kinds.
void forgetRecordedKinds();

}  // namespace quen::small
