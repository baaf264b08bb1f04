// The entry points that the module exports, grouped by what they work on.
//
// Compiled Quen code calls them by these names on any thread; each returns when its work is done.
// A path text is NUL-terminated; null and "" both count as empty. A receiver is a path object or
// null. A failure makes one exception pending in the runtime and returns the neutral value: false,
// 0, an empty String or nothing. No C++ exception leaves an entry point except std::bad_alloc.
//
// Path objects derived from a receiver keep three properties: whether they are a FolderPath,
// whether the text had an explicit Windows root, and the sticky flag "parent traversal", which says
// that their derivation involved a "..".
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

extern "C" {

// Path: normal form, absolute form, parent.
// Lexical, except for reading the current directory. None of them raises.

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

// Path: from one path to another.
// std::filesystem::relative comes first; if it fails, the result is lexical. Neither form raises.

// The path that leads from a base path object to the receiver, as the receiver's kind of path. The
// receiver itself when the base is null or one of the two has no path. The result keeps
// the parent traversal of either.
void* quen_io_Path_relativize(void* self, void* base);

// The path that leads from a base path text to a target as a String; the target as it is for a null
// base, "" for a null target.
void* quen_io_Path__relativizePath(const char* target, const char* base);

// Path: joining.
// Lexical. None of them raises.

// The operand, a path object or a raw path text, joined onto the receiver and normalized: a
// FolderPath exactly when the operand's text ends in a slash or backslash. An operand with a root
// directory replaces the receiver and its parent traversal. Null for a null receiver, the receiver
// itself for a null operand. Any other object, a String too, has no path text and counts as the
// empty text.
void* quen_io_Path_resolve(void* self, void* operand);

// The second overload of the language's method: behaves as quen_io_Path_resolve.
void* quen_io_Path_resolve__dup2(void* self, void* operand);

// The third overload of the language's method: behaves as quen_io_Path_resolve.
void* quen_io_Path_resolve__dup3(void* self, void* operand);

// An operand text joined onto a base text as a normalized String. When one is empty, the other as
// it is.
void* quen_io_Path__resolvePath(const char* base, const char* operand);

// Path: name, extension, kind, roots.
// What is absent is the empty String. None of them raises.

// The last name of the path as a String; "" for a path that ends in a slash.
void* quen_io_Path_name(void* self);

// Behaves as quen_io_Path_name.
void* __quen_propget_quen_io_Path_name(void* self);

// The last name of a path text as a String; "" for a text that ends in a slash.
void* quen_io_Path__pathName(const char* path);

// The extension of the last name, without its dot, as a String; "" for dot files.
void* quen_io_Path_extension(void* self);

// Behaves as quen_io_Path_extension.
void* __quen_propget_quen_io_Path_extension(void* self);

// The extension of a path text, without its dot, as a String; "" for dot files.
void* quen_io_Path__pathExtension(const char* path);

// What a path text names, as the runtime knows it: the String "directory", "file" or "unknown".
void* quen_io_Path__pathKindPath(const char* path);

// The roots of the file system: an ArrayList of the one String "/".
void* quen_io_Path__rootStringsNative();

// Path and FileInputStream: questions about an entry.
// They return false or 0 if the query fails. Links are followed unless noted otherwise.

// Whether there is an entry at a path text, as the runtime knows it. False for an empty path.
bool quen_io_FileInputStream__existsPath(const char* path);

// Whether a path text names a regular file, as the runtime knows it. False for an empty path.
bool quen_io_FileInputStream__isRegularPath(const char* path);

// The size in bytes of the regular file at a path text; 0 for everything else.
std::int64_t quen_io_FileInputStream__sizePath(const char* path);

// Whether there is an entry at the path, as the runtime knows it. A null receiver raises
// NullException "Cannot read Path.exists on null".
bool quen_io_Path__exists(void* self);

// Behaves as quen_io_Path__exists.
bool __quen_propget_quen_io_Path_exists(void* self);

// Whether the path names a regular file, as the runtime knows it.
bool quen_io_Path__isRegular(void* self);

// Behaves as quen_io_Path__isRegular.
bool __quen_propget_quen_io_Path_isRegular(void* self);

// Whether the path names a directory, as the runtime knows it.
bool quen_io_Path__isDirectory(void* self);

// Behaves as quen_io_Path__isDirectory.
bool __quen_propget_quen_io_Path_isDirectory(void* self);

// Whether the entry itself is a symbolic link, dangling or not.
bool quen_io_Path__isSymlink(void* self);

// Behaves as quen_io_Path__isSymlink.
bool __quen_propget_quen_io_Path_isSymlink(void* self);

// The size in bytes of the regular file at the path; 0 for everything else.
std::int64_t quen_io_Path__size(void* self);

// Behaves as quen_io_Path__size.
std::int64_t __quen_propget_quen_io_Path_size(void* self);

// When the entry was last written, in whole milliseconds since 1970-01-01T00:00:00Z, truncated
// towards zero. It can be up to a millisecond too early, because converting the file clock reads
// two clocks. 0 when it cannot be read.
std::int64_t quen_io_Path__lastModified(void* self);

// Behaves as quen_io_Path__lastModified.
std::int64_t __quen_propget_quen_io_Path_lastModified(void* self);

// Path, FilePath and FolderPath: changes to an entry.
// Each raises at most one IOException; earlier steps on disk are not undone.

// Removes one file, link or empty folder. Raises "Path is empty" or "Cannot remove path", also when
// there is nothing to remove.
void quen_io_Path_remove(void* self);

// Renames the entry to a new name inside its parent, or moves it to an absolute path, and sets
// the receiver's "_path" to the new path. Raises "Invalid path" when either is empty, or "Cannot
// rename path"; the receiver is then unchanged.
void quen_io_Path_rename(void* self, const char* newName);

// Creates an empty file, or sets the modification time of an existing one to now. Raises
// "Path is empty", "Path is a directory", "Cannot update file timestamp", "Cannot access path" or
// "Cannot create file".
void quen_io_FilePath_touch(void* self);

// Behaves as quen_io_FilePath_touch.
void quen_io_Path_touch(void* self);

// Creates one folder; an existing one is accepted. Raises "Path is empty", "A non-directory path
// already exists" or "Cannot create directory".
void quen_io_FolderPath__mkdirNative(const char* path);

// Creates a folder and its missing parents; an existing one is accepted. Raises "Path is
// empty", "A non-directory path already exists" or "Cannot create directories".
void quen_io_FolderPath__mkdirsNative(const char* path);

// Removes an entry and everything below it, without following links; a missing one is accepted.
// Raises "Path is empty", "Recursive deletion rejects unsafe root or parent traversal" (nothing
// changes then) or "Cannot remove directory recursively" (entries removed before stay removed).
void quen_io_FolderPath__removeAllNative(const char* path);

// FolderPath: listing.

// The names of a folder's entries as an ArrayList of Strings, in the order of the operating system,
// without "." and "..". The kind of each entry is recorded in the runtime. An empty path and a
// folder that may not be read give an empty list. Raises IOException "Cannot enumerate directory",
// or with the description of a C++ exception that ended the listing; the list then contains the
// names read before.
void* quen_io_FolderPath__listNamesNative(const char* path);

// FileReader and FileInputStream: contents.
// Each opens the file, reads, and closes it.

// The whole file as a String. A read that fails ends the text, so that of a folder is empty. Raises
// IOException "File path is empty", "Cannot open file" or "File is not valid UTF-8 at byte N"; the
// String is then empty.
void* quen_io_FileReader__readAllTextPath(const char* path);

// The text from a byte offset to the end of the file as a String; an offset below 0 counts as 0,
// and one beyond the end gives "". The whole file is read and validated anyway, and the offset may
// lie inside a character. Raises as quen_io_FileReader__readAllTextPath.
void* quen_io_FileInputStream__readTextFromOffsetPath(const char* path, std::int64_t offset);

// The beginning of the file as a String, at most `limit` bytes; a character that the limit cuts is
// left out. A limit below 1 gives "" without opening the file. Raises IOException "File path
// is empty", "Cannot open file", "Failed to read file" or "File is not valid UTF-8 at byte N"; the
// String is then empty.
void* quen_io_FileReader__readPrefixPath(const char* path, std::int64_t limit);

// Reads up to `count` bytes from a position on into the Byte[] `destination` and gives the number
// read; 0 at end of file. A position below 0 counts as 0. A count below 1 gives 0 whatever
// the path.
// Raises IOException "File path is empty", "Cannot open file", "Cannot seek in file" or "Failed to
// read file", and TypeError with the runtime's words, or "Expected Byte[]", when bytes were read
// and the destination does not take them; 0 then.
std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t position,
                                                    void* destination, std::int64_t count);

// FileWriter, FileOutputStream and Files: one-shot writing.
// Each opens the file, which is created if it is missing, writes, and closes it.
// All raise IOException "File path is empty" or "Cannot open file for writing". The close is
// not checked, so a failure to write the buffer there is not reported. Texts end at their NUL.

// Empties the file. True on success.
bool quen_io_FileWriter__truncatePath(const char* path);

// Behaves as quen_io_FileWriter__truncatePath.
bool quen_io_FileOutputStream__truncatePath(const char* path);

// Appends a text, which may be null. Raises IOException "Failed to write file" as well.
void quen_io_FileWriter__appendPath(const char* path, const char* text);

// Behaves as quen_io_FileWriter__appendPath.
void quen_io_FileOutputStream__appendTextPath(const char* path, const char* text);

// Empties the file, then appends a text, which may be null; in between the file is empty. Raises as
// quen_io_FileWriter__appendPath.
void quen_io_FileWriter__writePath(const char* path, const char* text);

// Replaces the file's content with that of a Byte[]; null counts as no bytes. Raises IOException
// "Failed to write file" as well, and TypeError with the runtime's words, or "Expected Byte[]", for
// any other object; the file is then unchanged.
void quen_io_Files__writeBytesPath(const char* path, void* bytes);

// Replaces the file's content with a prefix text, which may be null, and the content of a Byte[].
// Raises as quen_io_Files__writeBytesPath.
void quen_io_Files__writeBytesWithPrefixPath(const char* path, const char* prefix, void* bytes);

// Appends the content of a Byte[]. Raises IOException "Failed to write file" as well, and TypeError
// with the runtime's words, or "Expected Byte[]", for any other object and for null; the file is
// then untouched.
void quen_io_FileOutputStream__appendBytesPath(const char* path, void* bytes);

// FileWriter: files that stay open.
// Handles are numbered from 1 and never reused. Any thread may use any handle; calls on the same
// handle are serialized.

// Opens a file for writing, truncated, or for appending when `append` is not 0, and returns its
// handle. Raises IOException "File path is empty" or "Cannot open file for writing"; 0 then.
std::int64_t quen_io_FileWriter__openPath(const char* path, std::int32_t append);

// Writes a text, up to its NUL; null writes nothing. It may stay in the writer's buffer.
// Raises IOException "File writer is closed" or "Failed to write file", also when an earlier call
// failed.
void quen_io_FileWriter__writeHandle(std::int64_t handle, const char* text);

// Writes the buffer to the system. Raises IOException "File writer is closed" or
// "Failed to flush file", also when an earlier call failed.
void quen_io_FileWriter__flushHandle(std::int64_t handle);

// Flushes and closes the file; the handle is closed even on failure. Does nothing for a handle
// that is not open. Raises IOException "Failed to flush file before closing".
void quen_io_FileWriter__closeHandle(std::int64_t handle);

// TOML: strict input.

// The whole file as a String, for a parser of TOML. Raises IOException "File path is empty" or
// "Cannot open file", and quen.io.toml.TOMLParseException "Raw U+0000 is not allowed in TOML input
// at byte N" or, without any, "TOML input is not valid UTF-8 at byte N"; the String is then empty.
// N is the offset of the first U+0000, or of the first fault: of the offending byte when a
// continuation byte is expected and another found, of the lead byte for everything else. The rest
// is the parser's job: a byte-order mark is kept, and other control characters pass.
void* quen_io_toml_TOML__readStrictPath(const char* path);

// DocumentIndexStore: atomic publication.

// Replaces the file at a path with the content atomically, by renaming a temporary file PATH.tmp-N
// in the same folder. Readers see the old file or the new one, never a mixture. It does not call
// fsync. Raises IOException "Document index path and content are required" (an empty path, null
// content), "Cannot create temporary document index", "Cannot write temporary document index" or
// "Cannot atomically publish document index"; the target is then unchanged.
void quen_data_internal_DocumentIndexStore__writeAtomic(const char* path, const char* content);

}  // extern "C"

// For other native code: whether a path must never be removed recursively. That is an empty path,
// one with a ".." segment, one without an absolute form, a root, and exactly the folders that the
// environment variables QUEN_HOME and HOME named at the first call.
bool Quen_isUnsafeRecursiveDeletePath(const char* path);

#pragma GCC visibility pop
