// The entry points that the module exports, grouped by what they work on.
//
// Compiled Quen code calls them by these names on any thread; each returns when its work is done.
// A path text is NUL-terminated; null and "" both count as empty. A receiver is a path object or
// null. A failure makes one exception pending in the runtime and returns the neutral value: false,
// 0, an empty String or nothing. No C++ exception leaves an entry point, but for exhausted memory.
//
// Objects that derive from a receiver carry three facts along: whether they are a FolderPath,
// whether the text had an explicit Windows root, and whether a ".." took part in making them, which
// is sticky.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

extern "C" {

// Path: normal form, absolute form, parent.
// Lexical, but for reading the current directory. None of them raises.

// The current directory in normal form as a FolderPath; of the empty path when it cannot be read.
void* __quen_propget_quen_io_Path_cwd();

// The current directory as a String, just as the system reports it; "" when it cannot be read.
void* quen_io_Path__cwdPath();

// The lexical normal form as the same kind of path. Never null: a null receiver or an empty text
// gives an object of the empty path.
void* quen_io_Path_normalize(void* self);

// The lexical normal form of a path text as a String; "" for null.
void* quen_io_Path__normalizePath(const char* path);

// The normal form of the absolute form as the same kind of path; of the path as given when it has
// no absolute form (it is empty, or the current directory cannot be read). Never null.
void* quen_io_Path_toAbsolute(void* self);

// The normal form of the absolute form of a path text as a String; the text unchanged when it has
// no absolute form; "" for null.
void* quen_io_Path__absolutePath(const char* path);

// The normal form of the lexical parent as a FolderPath; null when there is none (an empty path, a
// single relative name).
void* quen_io_Path_parent(void* self);

// The normal form of the lexical parent of a path text as a String; "" when there is none.
void* quen_io_Path__parentPath(const char* path);

// Whether the path has a root directory. False for an empty path.
bool quen_io_Path__isAbsolute(void* self);

// Behaves as quen_io_Path__isAbsolute.
bool __quen_propget_quen_io_Path_isAbsolute(void* self);

// Whether the path equals its normal form element by element, so that "a//b" does and "./a" does
// not. False for an empty path.
bool quen_io_Path__isNormalized(void* self);

// Behaves as quen_io_Path__isNormalized.
bool __quen_propget_quen_io_Path_isNormalized(void* self);

// Path and FileInputStream: questions about an entry.
// They answer false or 0 for everything they cannot answer. Links are followed but where it is
// said.

// Whether there is an entry at a path text, as the runtime knows it. False for an empty path.
bool quen_io_FileInputStream__existsPath(const char* path);

// Whether a path text names a regular file, as the runtime knows it. False for an empty path.
bool quen_io_FileInputStream__isRegularPath(const char* path);

// The size in bytes of the regular file at a path text; 0 for everything else.
std::int64_t quen_io_FileInputStream__sizePath(const char* path);

// Whether there is an entry at the path, as the runtime knows it. A null receiver raises
// NullException "Cannot read Path.exists on null".
bool quen_io_Path__exists(void* self);

// Whether the path names a regular file, as the runtime knows it.
bool quen_io_Path__isRegular(void* self);

// Whether the path names a directory, as the runtime knows it.
bool quen_io_Path__isDirectory(void* self);

// Whether the entry itself is a symbolic link, dangling or not.
bool quen_io_Path__isSymlink(void* self);

// The size in bytes of the regular file at the path; 0 for everything else.
std::int64_t quen_io_Path__size(void* self);

// When the entry was last written, in whole milliseconds since 1970-01-01T00:00:00Z, cut off
// towards 1970. It can fall short by the moment that passes between two clock readings. 0 when it
// cannot be read.
std::int64_t quen_io_Path__lastModified(void* self);

// Behaves as quen_io_Path__exists.
bool __quen_propget_quen_io_Path_exists(void* self);

// Behaves as quen_io_Path__isRegular.
bool __quen_propget_quen_io_Path_isRegular(void* self);

// Behaves as quen_io_Path__isDirectory.
bool __quen_propget_quen_io_Path_isDirectory(void* self);

// Behaves as quen_io_Path__isSymlink.
bool __quen_propget_quen_io_Path_isSymlink(void* self);

// Behaves as quen_io_Path__size.
std::int64_t __quen_propget_quen_io_Path_size(void* self);

// Behaves as quen_io_Path__lastModified.
std::int64_t __quen_propget_quen_io_Path_lastModified(void* self);

// FolderPath: listing.

// The names of a folder's entries as an ArrayList of Strings, in the order of the operating system,
// without "." and "..". The kind of each entry is recorded in the runtime. An empty path and a
// folder that may not be read give an empty list. Raises IOException "Cannot enumerate directory",
// or with the description of a C++ exception that got in the way; the list then holds the names so
// far.
void* quen_io_FolderPath__listNamesNative(const char* path);

// FileReader and FileInputStream: contents.
// Each reads through a stream of its own, opened and closed within the call.

// The whole file as a String. Raises IOException "File path is empty", "Cannot open file", "Failed
// to read file" or "File is not valid UTF-8 at byte N"; the String is then empty.
void* quen_io_FileReader__readAllTextPath(const char* path);

// The text from a byte offset to the end of the file as a String; an offset below 0 counts as 0,
// and beyond the end there is nothing. The whole file is read and checked all the same, and the cut
// may fall inside a character. Raises as quen_io_FileReader__readAllTextPath.
void* quen_io_FileInputStream__readTextFromOffsetPath(const char* path, std::int64_t offset);

// Reads up to `count` bytes from a position on into a Byte[] and gives the number read; 0 at the
// end of the file. A position below 0 counts as 0. A count below 1 gives 0 whatever the path.
// Raises IOException "File path is empty", "Cannot open file", "Cannot seek in file" or "Failed to
// read file", and TypeError with the runtime's words, or "Expected Byte[]", when bytes were read
// and the destination does not take them; 0 then.
std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t position,
                                                    void* destination, std::int64_t count);

// DocumentIndexStore: atomic publication.

// Replaces the file at a path with the content in one step, through a temporary file beside it
// named PATH.tmp-N. Readers see the old file or the new one, never a mixture; nothing is forced to
// storage. Raises IOException "Document index path and content are required" (an empty path, null
// content), "Cannot create temporary document index", "Cannot write temporary document index" or
// "Cannot atomically publish document index"; the target is then as it was.
void quen_data_internal_DocumentIndexStore__writeAtomic(const char* path, const char* content);

}  // extern "C"

#pragma GCC visibility pop
