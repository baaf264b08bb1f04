// Each entry point of entry_points.h, in its order, as
//
//   QUEN_IO_ENTRY(name, result, parameters...)
//
// for programs that make a binding from a table. Define the macro, include this header as often as
// needed, and undefine it again. An entry point without parameters has an empty one.
//
//   #define QUEN_IO_ENTRY(name, result, ...) {#name, #__VA_ARGS__, &binding<&name>},
//   constexpr Binding kBindings[] = {
//   #include <quen/io/entry_list.h>
//   };
//   #undef QUEN_IO_ENTRY
//
// Written by runtime/entry_list.py.

#ifndef QUEN_IO_ENTRY
#error "Define QUEN_IO_ENTRY(name, result, ...) before including this header."
#endif

// clang-format off
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_cwd, void*, )
QUEN_IO_ENTRY(quen_io_Path__cwdPath, void*, )
QUEN_IO_ENTRY(quen_io_Path_normalize, void*, void* self)
QUEN_IO_ENTRY(quen_io_Path__normalizePath, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path_toAbsolute, void*, void* self)
QUEN_IO_ENTRY(quen_io_Path__absolutePath, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path_parent, void*, void* self)
QUEN_IO_ENTRY(quen_io_Path__parentPath, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path__isAbsolute, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_isAbsolute, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path__isNormalized, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_isNormalized, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path_relativize, void*, void* self, void* base)
QUEN_IO_ENTRY(quen_io_Path__relativizePath, void*, const char* target, const char* base)
QUEN_IO_ENTRY(quen_io_Path_resolve, void*, void* self, void* operand)
QUEN_IO_ENTRY(quen_io_Path_resolve__dup2, void*, void* self, void* operand)
QUEN_IO_ENTRY(quen_io_Path_resolve__dup3, void*, void* self, void* operand)
QUEN_IO_ENTRY(quen_io_Path__resolvePath, void*, const char* base, const char* operand)
QUEN_IO_ENTRY(quen_io_Path_name, void*, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_name, void*, void* self)
QUEN_IO_ENTRY(quen_io_Path__pathName, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path_extension, void*, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_extension, void*, void* self)
QUEN_IO_ENTRY(quen_io_Path__pathExtension, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path__pathKindPath, void*, const char* path)
QUEN_IO_ENTRY(quen_io_Path__rootStringsNative, void*, )
QUEN_IO_ENTRY(quen_io_FileInputStream__existsPath, bool, const char* path)
QUEN_IO_ENTRY(quen_io_FileInputStream__isRegularPath, bool, const char* path)
QUEN_IO_ENTRY(quen_io_FileInputStream__sizePath, std::int64_t, const char* path)
QUEN_IO_ENTRY(quen_io_Path__exists, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_exists, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path__isRegular, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_isRegular, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path__isDirectory, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_isDirectory, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path__isSymlink, bool, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_isSymlink, bool, void* self)
QUEN_IO_ENTRY(quen_io_Path__size, std::int64_t, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_size, std::int64_t, void* self)
QUEN_IO_ENTRY(quen_io_Path__lastModified, std::int64_t, void* self)
QUEN_IO_ENTRY(__quen_propget_quen_io_Path_lastModified, std::int64_t, void* self)
QUEN_IO_ENTRY(quen_io_Path_remove, void, void* self)
QUEN_IO_ENTRY(quen_io_Path_rename, void, void* self, const char* newName)
QUEN_IO_ENTRY(quen_io_FilePath_touch, void, void* self)
QUEN_IO_ENTRY(quen_io_Path_touch, void, void* self)
QUEN_IO_ENTRY(quen_io_FolderPath__mkdirNative, void, const char* path)
QUEN_IO_ENTRY(quen_io_FolderPath__mkdirsNative, void, const char* path)
QUEN_IO_ENTRY(quen_io_FolderPath__removeAllNative, void, const char* path)
QUEN_IO_ENTRY(quen_io_FolderPath__listNamesNative, void*, const char* path)
QUEN_IO_ENTRY(quen_io_FileReader__readAllTextPath, void*, const char* path)
QUEN_IO_ENTRY(quen_io_FileInputStream__readTextFromOffsetPath, void*, const char* path, std::int64_t offset)
QUEN_IO_ENTRY(quen_io_FileReader__readPrefixPath, void*, const char* path, std::int64_t limit)
QUEN_IO_ENTRY(quen_io_FileInputStream__readBytesPath, std::int64_t, const char* path, std::int64_t position, void* destination, std::int64_t count)
QUEN_IO_ENTRY(quen_io_FileWriter__truncatePath, bool, const char* path)
QUEN_IO_ENTRY(quen_io_FileOutputStream__truncatePath, bool, const char* path)
QUEN_IO_ENTRY(quen_io_FileWriter__appendPath, void, const char* path, const char* text)
QUEN_IO_ENTRY(quen_io_FileOutputStream__appendTextPath, void, const char* path, const char* text)
QUEN_IO_ENTRY(quen_io_FileWriter__writePath, void, const char* path, const char* text)
QUEN_IO_ENTRY(quen_io_Files__writeBytesPath, void, const char* path, void* bytes)
QUEN_IO_ENTRY(quen_io_Files__writeBytesWithPrefixPath, void, const char* path, const char* prefix, void* bytes)
QUEN_IO_ENTRY(quen_io_FileOutputStream__appendBytesPath, void, const char* path, void* bytes)
QUEN_IO_ENTRY(quen_io_FileWriter__openPath, std::int64_t, const char* path, std::int32_t append)
QUEN_IO_ENTRY(quen_io_FileWriter__writeHandle, void, std::int64_t handle, const char* text)
QUEN_IO_ENTRY(quen_io_FileWriter__flushHandle, void, std::int64_t handle)
QUEN_IO_ENTRY(quen_io_FileWriter__closeHandle, void, std::int64_t handle)
QUEN_IO_ENTRY(quen_io_toml_TOML__readStrictPath, void*, const char* path)
QUEN_IO_ENTRY(quen_data_internal_DocumentIndexStore__writeAtomic, void, const char* path, const char* content)
QUEN_IO_ENTRY(Quen_isUnsafeRecursiveDeletePath, bool, const char* path)
