// The operations of the Quen runtime that the module imports, and nothing else.
//
// The program that links the module defines them. None throws a C++ exception except
// std::bad_alloc. Path text is NUL-terminated. The following rules hold for all of them;
// docs/boundary.md explains the reasons.
//
// Threads. The module starts no threads: an operation is called on the thread that called the entry
// point. It may be called on any thread that runs language code, and on several at once.
//
// Locks. A runtime with a global lock (a global interpreter lock) gives it up around every entry
// point, and its operations that touch objects take it. Quen_raise and Quen_hasPendingError never
// take it.
//
// Objects. An object is an untyped pointer; null is the language's null. The module compares it
// with null and does nothing else with its value, so it may be any non-null handle, and an object
// may have several. The arguments and the receiver of an entry point, and every result of an
// operation, stay valid, with the same value, until the entry point has returned; an object that
// the entry point returns, until its caller has taken it. The module holds them in native variables
// only, where a precise collector does not find them. It keeps no object and no text after that.
//
// Texts. A text argument of an entry point stays unchanged at its address until the entry point has
// returned. What an operation gets (texts, paths, bytes, names of classes and fields) belongs to
// the module and is valid during the call only; what the runtime keeps of it, it copies.
//
// Re-entry. No lock of the module is held while an operation runs, except in Quen_raise and
// Quen_runtimeFsPath. So any other operation may call any entry point, for instance from a
// finalizer that a collection runs; it must not leave an exception pending that was not pending
// before.
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

// The filesystem path of a path text. Null text gives the empty path. Recursive removal may not be
// called from here, nor its guard: the guard converts the two home directories once per process,
// inside the initialization of a static variable, which may not be entered again from within, and
// for which removals on other threads wait.
std::filesystem::path Quen_runtimeFsPath(const char* text);

// A new String with the visible text of a path. `explicitWindowsRoot` tells that the text the path
// was derived from had a drive or UNC root, whose form the visible text then keeps.
void* Quen_allocPathString(const std::filesystem::path& path, bool explicitWindowsRoot);

// The same visible text as bytes instead of a String.
std::string Quen_visiblePathString(const std::filesystem::path& path, bool explicitWindowsRoot);

// A new path object whose text is the path's visible text: a FolderPath unless `nonFolder`, and an
// object of any other path class if so. The class of the receiver is not passed: in the small
// runtime, the normal form of a FilePath is a Path. `parentTraversal` is what its field
// "_hasParentTraversal" reads from then on.
void* Quen_allocTypedPathObjectFromPath(const std::filesystem::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal);

// The path text of a path object; null for null, for an object without a path, and for an object of
// any other class. The text belongs to the runtime. It stays unchanged at its address until the
// entry point that asked for it has returned, even if the object's "_path" is set in the meantime
// (by another thread, or by a finalizer).
const char* Quen_filePathFromObject(void* object);

// Whether the text begins with a drive or UNC root. Null text has none. A drive root is an ASCII
// letter, a colon, and a slash or backslash; "C:" and "C:a" have none. A UNC root is two
// backslashes and the name of a server; "//server" has none, because it is a path of this host.
bool Quen_pathHasExplicitWindowsRoot(const char* text);

// Kinds of entries.

// The kind of the entry at the path, links followed, as the runtime's record of kinds knows it. May
// read the file system.
QuenPathEntryKind Quen_pathEntryKind(const std::filesystem::path& path);

// Records the kind that Quen_pathEntryKind has just given for an entry of a listed folder. The
// module reports no change: neither removals, renames and new files of its own nor those of other
// processes. A runtime that answers from the record decides itself how long it believes it; one
// that ignores this call is always right.
void Quen_cachePathEntryKind(const std::filesystem::path& path, QuenPathEntryKind kind);

// Whether there is an entry at the path. May read the file system.
bool Quen_pathExists(const std::filesystem::path& path);

// Strings and byte arrays.

// A new String of exactly these bytes, whatever they are: of invalid UTF-8 too, and NULs among
// them. Never null.
void* Quen_allocString(const std::string& bytes);

// Copies the contents of a Byte[] into `bytes`. False when the object (which may be null) is none;
// `error` then holds the reason, or stays empty. The module raises the TypeError.
bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error);

// Fills a Byte[] with `count` bytes, at least 1. With fewer than it holds (a short read at the end
// of file), the first bytes change, and its length and the other bytes stay. With more, it is
// refused and stays as it is, or grows to hold them all. False when the object (which may be null)
// cannot take them; `error` then holds the reason, or stays empty. No exception is raised here: the
// module raises the TypeError.
bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error);

// Objects.

// Whether the pointer is a runtime object. False for null and for any C string, of which no byte
// after its NUL may be read. A handle has to differ from every address that a C string can have.
bool hasObjectMagic(void* pointer);

extern "C" {

// A new object of the named class. The module asks for "ArrayList" only.
void* Quen_allocObject(const char* className);

// An integer or boolean field of a non-null object; 0 for an object that lacks the field. The
// module reads "_hasParentTraversal" only, of whatever object is passed as a path: of a String too.
std::int64_t Quen_getField_i64(void* object, const char* field);

// Stores an object in a field. The module writes the String "_path" only, of an object with a path
// text that is not empty.
void Quen_setField_ptr(void* object, const char* field, void* value);

// Nonzero when the object is of the class, given by short or qualified name, or of a subclass.
// 0 for null.
int Quen_isInstanceOf(void* object, const char* className);

// Appends an element to an ArrayList. The module does not use the element again, so from then on
// the list may be what keeps it alive.
void quen_collections_ArrayList_add(void* list, void* element);

// Exceptions.

// Makes an exception of the named class pending on this thread and returns. The message is copied.
// An entry point raises at most once; if an exception was pending before the call, either may
// remain.
//
// Takes no global lock, allocates no managed object and runs no finalizer: the class and the
// message are kept in native memory of the thread until the entry point has returned. No entry
// point of a file writer may be called from here. The module holds the lock of its registry of
// writers while it raises "File writer is closed" for a handle from 1 on, and the lock of the
// writer while it raises "Failed to write file", "Failed to flush file" or "Failed to flush file
// before closing" for a handle; the locks are not recursive, so such a call would wait forever. The
// process may be ended from here: exit() waits for neither lock.
void Quen_raise(const char* exceptionClass, const char* message);

// Nonzero while an exception is pending on this thread. Takes no global lock.
int Quen_hasPendingError();

}  // extern "C"

#pragma GCC visibility pop
