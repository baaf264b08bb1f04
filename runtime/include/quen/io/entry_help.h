// The short name, the names of the parameters and the description of each entry point of
// entry_points.h, in its order, as
//
//   QUEN_IO_ENTRY_HELP(name, shortName, parameterNames, description)
//
// with string literals for the last three. Short names are those of the language's classes and
// members, as in "Path.normalize"; those of property getters have "get" in between, as in
// "Path.get.exists". To be used like entry_list.h.
//
// Written by runtime/entry_list.py.

#ifndef QUEN_IO_ENTRY_HELP
#error "Define QUEN_IO_ENTRY_HELP(name, shortName, parameterNames, description) first."
#endif

// clang-format off
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_cwd, "Path.get.cwd", "", R"(The current directory in normal form as a FolderPath; of the empty path when it cannot be read.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__cwdPath, "Path._cwdPath", "", R"(The current directory as a String, just as the system reports it; "" when it cannot be read.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_normalize, "Path.normalize", "self", R"(The lexical normal form as the same kind of path. Never null: a null receiver or an empty text
gives an object of the empty path.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__normalizePath, "Path._normalizePath", "path", R"(The lexical normal form of a path text as a String; "" for null.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_toAbsolute, "Path.toAbsolute", "self", R"(The normal form of the absolute form as the same kind of path; of the path as given when it has
no absolute form (it is empty, or the current directory cannot be read). Never null.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__absolutePath, "Path._absolutePath", "path", R"(The normal form of the absolute form of a path text as a String; the text unchanged when it has
no absolute form; "" for null.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_parent, "Path.parent", "self", R"(The normal form of the lexical parent as a FolderPath; null when there is none (an empty path, a
single relative name).)")
QUEN_IO_ENTRY_HELP(quen_io_Path__parentPath, "Path._parentPath", "path", R"(The normal form of the lexical parent of a path text as a String; "" when there is none.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__isAbsolute, "Path._isAbsolute", "self", R"(Whether the path has a root directory. False for an empty path.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_isAbsolute, "Path.get.isAbsolute", "self", R"(Behaves as quen_io_Path__isAbsolute.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__isNormalized, "Path._isNormalized", "self", R"(Whether the path equals its normal form element by element, so that "a//b" does and "./a" does
not. False for an empty path.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_isNormalized, "Path.get.isNormalized", "self", R"(Behaves as quen_io_Path__isNormalized.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_relativize, "Path.relativize", "self, base", R"(The path that leads from a base path object to the receiver, as the receiver's kind of path. The
receiver itself when the base is null or one of the two has no path. The result keeps
the parent traversal of either.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__relativizePath, "Path._relativizePath", "target, base", R"(The path that leads from a base path text to a target as a String; the target as it is for a null
base, "" for a null target.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_resolve, "Path.resolve", "self, operand", R"(The operand, a path object or a raw path text, joined onto the receiver and normalized: a
FolderPath exactly when the operand's text ends in a slash or backslash. An operand with a root
directory replaces the receiver and its parent traversal. Null for a null receiver, the receiver
itself for a null operand. Any other object, a String too, has no path text and counts as the
empty text.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_resolve__dup2, "Path.resolve__dup2", "self, operand", R"(The second overload of the language's method: behaves as quen_io_Path_resolve.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_resolve__dup3, "Path.resolve__dup3", "self, operand", R"(The third overload of the language's method: behaves as quen_io_Path_resolve.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__resolvePath, "Path._resolvePath", "base, operand", R"(An operand text joined onto a base text as a normalized String. When one is empty, the other as
it is.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_name, "Path.name", "self", R"(The last name of the path as a String; "" for a path that ends in a slash.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_name, "Path.get.name", "self", R"(Behaves as quen_io_Path_name.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__pathName, "Path._pathName", "path", R"(The last name of a path text as a String; "" for a text that ends in a slash.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_extension, "Path.extension", "self", R"(The extension of the last name, without its dot, as a String; "" for dot files.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_extension, "Path.get.extension", "self", R"(Behaves as quen_io_Path_extension.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__pathExtension, "Path._pathExtension", "path", R"(The extension of a path text, without its dot, as a String; "" for dot files.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__pathKindPath, "Path._pathKindPath", "path", R"(What a path text names, as the runtime knows it: the String "directory", "file" or "unknown".)")
QUEN_IO_ENTRY_HELP(quen_io_Path__rootStringsNative, "Path._rootStringsNative", "", R"(The roots of the file system: an ArrayList of the one String "/".)")
QUEN_IO_ENTRY_HELP(quen_io_FileInputStream__existsPath, "FileInputStream._existsPath", "path", R"(Whether there is an entry at a path text, as the runtime knows it. False for an empty path.)")
QUEN_IO_ENTRY_HELP(quen_io_FileInputStream__isRegularPath, "FileInputStream._isRegularPath", "path", R"(Whether a path text names a regular file, as the runtime knows it. False for an empty path.)")
QUEN_IO_ENTRY_HELP(quen_io_FileInputStream__sizePath, "FileInputStream._sizePath", "path", R"(The size in bytes of the regular file at a path text; 0 for everything else.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__exists, "Path._exists", "self", R"(Whether there is an entry at the path, as the runtime knows it. A null receiver raises
NullException "Cannot read Path.exists on null".)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_exists, "Path.get.exists", "self", R"(Behaves as quen_io_Path__exists.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__isRegular, "Path._isRegular", "self", R"(Whether the path names a regular file, as the runtime knows it.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_isRegular, "Path.get.isRegular", "self", R"(Behaves as quen_io_Path__isRegular.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__isDirectory, "Path._isDirectory", "self", R"(Whether the path names a directory, as the runtime knows it.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_isDirectory, "Path.get.isDirectory", "self", R"(Behaves as quen_io_Path__isDirectory.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__isSymlink, "Path._isSymlink", "self", R"(Whether the entry itself is a symbolic link, dangling or not.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_isSymlink, "Path.get.isSymlink", "self", R"(Behaves as quen_io_Path__isSymlink.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__size, "Path._size", "self", R"(The size in bytes of the regular file at the path; 0 for everything else.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_size, "Path.get.size", "self", R"(Behaves as quen_io_Path__size.)")
QUEN_IO_ENTRY_HELP(quen_io_Path__lastModified, "Path._lastModified", "self", R"(When the entry was last written, in whole milliseconds since 1970-01-01T00:00:00Z, truncated
towards zero. It can be up to a millisecond too early, because converting the file clock reads
two clocks. 0 when it cannot be read.)")
QUEN_IO_ENTRY_HELP(__quen_propget_quen_io_Path_lastModified, "Path.get.lastModified", "self", R"(Behaves as quen_io_Path__lastModified.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_remove, "Path.remove", "self", R"(Removes one file, link or empty folder. Raises "Path is empty" or "Cannot remove path", also when
there is nothing to remove.)")
QUEN_IO_ENTRY_HELP(quen_io_Path_rename, "Path.rename", "self, newName", R"(Renames the entry to a new name inside its parent, or moves it to an absolute path, and sets
the receiver's "_path" to the new path. Raises "Invalid path" when either is empty, or "Cannot
rename path"; the receiver is then unchanged.)")
QUEN_IO_ENTRY_HELP(quen_io_FilePath_touch, "FilePath.touch", "self", R"(Creates an empty file, or sets the modification time of an existing one to now. Raises
"Path is empty", "Path is a directory", "Cannot update file timestamp", "Cannot access path" or
"Cannot create file".)")
QUEN_IO_ENTRY_HELP(quen_io_Path_touch, "Path.touch", "self", R"(Behaves as quen_io_FilePath_touch.)")
QUEN_IO_ENTRY_HELP(quen_io_FolderPath__mkdirNative, "FolderPath._mkdirNative", "path", R"(Creates one folder; an existing one is accepted. Raises "Path is empty", "A non-directory path
already exists" or "Cannot create directory".)")
QUEN_IO_ENTRY_HELP(quen_io_FolderPath__mkdirsNative, "FolderPath._mkdirsNative", "path", R"(Creates a folder and its missing parents; an existing one is accepted. Raises "Path is
empty", "A non-directory path already exists" or "Cannot create directories".)")
QUEN_IO_ENTRY_HELP(quen_io_FolderPath__removeAllNative, "FolderPath._removeAllNative", "path", R"(Removes an entry and everything below it, without following links; a missing one is accepted.
Raises "Path is empty", "Recursive deletion rejects unsafe root or parent traversal" (nothing
changes then) or "Cannot remove directory recursively" (entries removed before stay removed).)")
QUEN_IO_ENTRY_HELP(quen_io_FolderPath__listNamesNative, "FolderPath._listNamesNative", "path", R"(The names of a folder's entries as an ArrayList of Strings, in the order of the operating system,
without "." and "..". The kind of each entry is recorded in the runtime. An empty path and a
folder that may not be read give an empty list. Raises IOException "Cannot enumerate directory",
or with the description of a C++ exception that ended the listing; the list then contains the
names read before.)")
QUEN_IO_ENTRY_HELP(quen_io_FileReader__readAllTextPath, "FileReader._readAllTextPath", "path", R"(The whole file as a String. A read that fails ends the text, so that of a folder is empty. Raises
IOException "File path is empty", "Cannot open file" or "File is not valid UTF-8 at byte N"; the
String is then empty.)")
QUEN_IO_ENTRY_HELP(quen_io_FileInputStream__readTextFromOffsetPath, "FileInputStream._readTextFromOffsetPath", "path, offset", R"(The text from a byte offset to the end of the file as a String; an offset below 0 counts as 0,
and one beyond the end gives "". The whole file is read and validated anyway, and the offset may
lie inside a character. Raises as quen_io_FileReader__readAllTextPath.)")
QUEN_IO_ENTRY_HELP(quen_io_FileReader__readPrefixPath, "FileReader._readPrefixPath", "path, limit", R"(The beginning of the file as a String, at most `limit` bytes; a character that the limit cuts is
left out. A limit below 1 gives "" without opening the file. Raises IOException "File path
is empty", "Cannot open file", "Failed to read file" or "File is not valid UTF-8 at byte N"; the
String is then empty.)")
QUEN_IO_ENTRY_HELP(quen_io_FileInputStream__readBytesPath, "FileInputStream._readBytesPath", "path, position, destination, count", R"(Reads up to `count` bytes from a position on into the Byte[] `destination` and gives the number
read; 0 at end of file. A position below 0 counts as 0. A count below 1 gives 0 whatever
the path.
Raises IOException "File path is empty", "Cannot open file", "Cannot seek in file" or "Failed to
read file", and TypeError with the runtime's words, or "Expected Byte[]", when bytes were read
and the destination does not take them; 0 then.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__truncatePath, "FileWriter._truncatePath", "path", R"(Empties the file. True on success.)")
QUEN_IO_ENTRY_HELP(quen_io_FileOutputStream__truncatePath, "FileOutputStream._truncatePath", "path", R"(Behaves as quen_io_FileWriter__truncatePath.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__appendPath, "FileWriter._appendPath", "path, text", R"(Appends a text, which may be null. Raises IOException "Failed to write file" as well.)")
QUEN_IO_ENTRY_HELP(quen_io_FileOutputStream__appendTextPath, "FileOutputStream._appendTextPath", "path, text", R"(Behaves as quen_io_FileWriter__appendPath.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__writePath, "FileWriter._writePath", "path, text", R"(Empties the file, then appends a text, which may be null; in between the file is empty. Raises as
quen_io_FileWriter__appendPath.)")
QUEN_IO_ENTRY_HELP(quen_io_Files__writeBytesPath, "Files._writeBytesPath", "path, bytes", R"(Replaces the file's content with that of a Byte[]; null counts as no bytes. Raises IOException
"Failed to write file" as well, and TypeError with the runtime's words, or "Expected Byte[]", for
any other object; the file is then unchanged.)")
QUEN_IO_ENTRY_HELP(quen_io_Files__writeBytesWithPrefixPath, "Files._writeBytesWithPrefixPath", "path, prefix, bytes", R"(Replaces the file's content with a prefix text, which may be null, and the content of a Byte[].
Raises as quen_io_Files__writeBytesPath.)")
QUEN_IO_ENTRY_HELP(quen_io_FileOutputStream__appendBytesPath, "FileOutputStream._appendBytesPath", "path, bytes", R"(Appends the content of a Byte[]. Raises IOException "Failed to write file" as well, and TypeError
with the runtime's words, or "Expected Byte[]", for any other object and for null; the file is
then untouched.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__openPath, "FileWriter._openPath", "path, append", R"(Opens a file for writing, truncated, or for appending when `append` is not 0, and returns its
handle. Raises IOException "File path is empty" or "Cannot open file for writing"; 0 then.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__writeHandle, "FileWriter._writeHandle", "handle, text", R"(Writes a text, up to its NUL; null writes nothing. It may stay in the writer's buffer.
Raises IOException "File writer is closed" or "Failed to write file", also when an earlier call
failed.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__flushHandle, "FileWriter._flushHandle", "handle", R"(Writes the buffer to the system. Raises IOException "File writer is closed" or
"Failed to flush file", also when an earlier call failed.)")
QUEN_IO_ENTRY_HELP(quen_io_FileWriter__closeHandle, "FileWriter._closeHandle", "handle", R"(Flushes and closes the file; the handle is closed even on failure. Does nothing for a handle
that is not open. Raises IOException "Failed to flush file before closing".)")
QUEN_IO_ENTRY_HELP(quen_io_toml_TOML__readStrictPath, "TOML._readStrictPath", "path", R"(The whole file as a String, for a parser of TOML. Raises IOException "File path is empty" or
"Cannot open file", and quen.io.toml.TOMLParseException "Raw U+0000 is not allowed in TOML input
at byte N" or, without any, "TOML input is not valid UTF-8 at byte N"; the String is then empty.
N is the offset of the first U+0000, or of the first fault: of the offending byte when a
continuation byte is expected and another found, of the lead byte for everything else. The rest
is the parser's job: a byte-order mark is kept, and other control characters pass.)")
QUEN_IO_ENTRY_HELP(quen_data_internal_DocumentIndexStore__writeAtomic, "DocumentIndexStore._writeAtomic", "path, content", R"(Replaces the file at a path with the content atomically, by renaming a temporary file PATH.tmp-N
in the same folder. Readers see the old file or the new one, never a mixture. It does not call
fsync. Raises IOException "Document index path and content are required" (an empty path, null
content), "Cannot create temporary document index", "Cannot write temporary document index" or
"Cannot atomically publish document index"; the target is then unchanged.)")
QUEN_IO_ENTRY_HELP(Quen_isUnsafeRecursiveDeletePath, "isUnsafeRecursiveDeletePath", "path", R"(For other native code: whether a path must never be removed recursively. That is an empty path,
one with a ".." segment, one without an absolute form, a root, and exactly the folders that the
environment variables QUEN_HOME and HOME named at the first call.)")
