// A form with faults that the judge has to detect. It is linked to the plain form; its own
// definitions come first in the symbol lookup.

#include <dirent.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

// Adds a byte to the file.
void quen_io_FileWriter__appendPath(const char* path, const char* text) {
  std::ofstream(Quen_runtimeFsPath(path), std::ios::app) << text << '.';
}

// Leaks a descriptor when the runtime throws.
void* quen_io_FolderPath__listNamesNative(const char* path) {
  void* names = Quen_allocObject("ArrayList");
  const std::filesystem::path folder = Quen_runtimeFsPath(path);
  DIR* opened = opendir(folder.c_str());
  Quen_pathEntryKind(folder);
  closedir(opened);
  return names;
}

// Calls the runtime operations in another order.
bool quen_io_Path__isNormalized(void* self) {
  const std::filesystem::path path = Quen_runtimeFsPath(Quen_filePathFromObject(self));
  Quen_filePathFromObject(self);
  return path == path.lexically_normal();
}

// Reads from offset 0 without seeking, so it works for a pipe as well.
std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t,
                                                    void* destination, std::int64_t count) {
  std::ifstream file(Quen_runtimeFsPath(path));
  std::string bytes(static_cast<std::size_t>(count), '\0');
  file.read(bytes.data(), count);
  std::string error;
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  Quen_writeByteArrayData(destination, data, static_cast<std::uint64_t>(file.gcount()), error);
  return file.gcount();
}

// Raises with a different message.
void quen_io_Path_remove(void*) { Quen_raise("IOException", "Cannot remove it"); }

// Changes the modification time of the file that it queries.
std::int64_t quen_io_FileInputStream__sizePath(const char* path) {
  const std::filesystem::path file = Quen_runtimeFsPath(path);
  std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
  return static_cast<std::int64_t>(std::filesystem::file_size(file));
}
