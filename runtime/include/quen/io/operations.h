// The 20 operations that the module asks of the Quen runtime, and nothing else.
//
// Whoever links the module supplies them. Each may be called from any thread that runs language
// code and reports no failure by a C++ exception, exhausted memory excepted.
// An object is an untyped pointer; null is the language's null. Path text is NUL-terminated.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// What a path names. The module compares with the two named kinds only; every other value means
// neither of them (a missing entry, a device, a socket).
enum class QuenPathEntryKind : std::int32_t { kRegularFile = 1, kDirectory = 2 };

#pragma GCC visibility push(default)

// Paths and their texts.

// The filesystem path of a path text. Null text gives the empty path.
std::filesystem::path Quen_runtimeFsPath(const char* text);

// A new String with the visible text of a path. `explicitWindowsRoot` tells that the text the path
// was derived from carried a drive or UNC root, whose form the visible text then keeps.
void* Quen_allocPathString(const std::filesystem::path& path, bool explicitWindowsRoot);

// The same visible text as bytes instead of a String.
std::string Quen_visiblePathString(const std::filesystem::path& path, bool explicitWindowsRoot);

// A new path object whose text is the path's visible text: a FolderPath unless `nonFolder`.
// `parentTraversal` is what its field "_hasParentTraversal" reads from then on.
void* Quen_allocTypedPathObjectFromPath(const std::filesystem::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal);

// The path text of a path object; null for null and for an object without a path. The text belongs
// to the runtime and stays valid until the entry point that asked for it has returned.
const char* Quen_filePathFromObject(void* object);

// Whether the text begins with a drive or UNC root. Null text has none.
bool Quen_pathHasExplicitWindowsRoot(const char* text);

// Kinds of entries.

// The kind of the entry at the path, as the runtime's record of kinds knows it.
QuenPathEntryKind Quen_pathEntryKind(const std::filesystem::path& path);

// Records the kind that an entry was just found to have.
void Quen_cachePathEntryKind(const std::filesystem::path& path, QuenPathEntryKind kind);

// Whether there is an entry at the path.
bool Quen_pathExists(const std::filesystem::path& path);

// Strings and byte arrays.

// A new String of exactly these bytes, whatever they are.
void* Quen_allocString(const std::string& bytes);

// Copies the contents of a Byte[] into `bytes`. False when the object (which may be null) is none;
// `error` then holds the reason, or stays empty.
bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error);

// Fills a Byte[] with `count` bytes. False when the object (which may be null) cannot take them;
// `error` then holds the reason, or stays empty.
bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error);

// Objects.

// Whether the pointer is a runtime object. False for null and for any raw text; no byte behind a
// text's NUL is read.
bool hasObjectMagic(void* pointer);

extern "C" {

// A new object of the named class. The module asks for "ArrayList" only.
void* Quen_allocObject(const char* className);

// An integer or boolean field of a non-null object. The module reads "_hasParentTraversal" only.
std::int64_t Quen_getField_i64(void* object, const char* field);

// Stores an object in a field. The module writes the String "_path" only.
void Quen_setField_ptr(void* object, const char* field, void* value);

// Nonzero when the object is of the class, given by short or qualified name, or of a subclass.
// 0 for null.
int Quen_isInstanceOf(void* object, const char* className);

// Appends an element to an ArrayList.
void quen_collections_ArrayList_add(void* list, void* element);

// Exceptions.

// Makes an exception of the named class pending on this thread and returns. The message is copied.
// The module may hold a lock of its own meanwhile, so nothing may be called back from here.
void Quen_raise(const char* exceptionClass, const char* message);

// Nonzero while an exception is pending on this thread.
int Quen_hasPendingError();

}  // extern "C"

#pragma GCC visibility pop
