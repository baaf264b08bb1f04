// Directory entries: queries, changes, guarded recursive removal, and listing.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "tests/plain/conventions.h"

namespace fs = std::filesystem;
using namespace quen::plain;

namespace {

// Reads system_clock before file_clock; the order decides in which direction the result is off.
// Unsigned numbers wrap around for times before 1882, where signed ones would overflow.
std::int64_t millisecondsSinceEpoch(fs::file_time_type written) {
  const std::chrono::nanoseconds systemNow = std::chrono::system_clock::now().time_since_epoch();
  const std::chrono::nanoseconds fileNow = fs::file_time_type::clock::now().time_since_epoch();
  const std::chrono::nanoseconds file = written.time_since_epoch();
  const std::uint64_t offset =
      static_cast<std::uint64_t>(systemNow.count()) - static_cast<std::uint64_t>(fileNow.count());
  const std::uint64_t time = static_cast<std::uint64_t>(file.count()) + offset;
  return static_cast<std::int64_t>(time) / 1'000'000;
}

std::int64_t sizeOrZero(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

// Whether the directory already exists; raises if the entry has another kind.
bool isPresentOrRaise(const fs::path& path) {
  std::error_code error;
  if (!fs::exists(fs::status(path, error))) return false;
  const fs::file_status again = fs::status(path, error);
  if (error || !fs::is_directory(again)) raiseIOException("A non-directory path already exists");
  return true;
}

// The path of a folder that does not exist yet; nullopt after raising, or if it exists.
std::optional<fs::path> missingFolderOrRaise(const char* path) {
  if (isEmpty(path)) return raiseIOException("Path is empty"), std::nullopt;
  const fs::path folder = Quen_runtimeFsPath(path);
  if (isPresentOrRaise(folder)) return std::nullopt;
  return folder;
}

void addLocation(std::vector<fs::path>& locations, const char* value) {
  if (isEmpty(value)) return;
  std::error_code error;
  const fs::path absolute = fs::absolute(Quen_runtimeFsPath(value), error);
  if (error) return;
  fs::path location = absolute.lexically_normal();
  const fs::path canonical = fs::weakly_canonical(location, error);
  if (!error) location = canonical;
  if (std::find(locations.begin(), locations.end(), location) == locations.end()) {
    locations.push_back(location);
  }
}

const std::vector<fs::path>& protectedDeleteLocations() {
  static const std::vector<fs::path> locations = [] {
    std::vector<fs::path> found;
    addLocation(found, std::getenv("QUEN_HOME"));
    addLocation(found, std::getenv("HOME"));
    return found;
  }();
  return locations;
}

bool isProtected(const fs::path& path) {
  const std::vector<fs::path>& locations = protectedDeleteLocations();
  return std::find(locations.begin(), locations.end(), path) != locations.end();
}

void addEntry(void* names, const fs::path& entry) {
  const QuenPathEntryKind kind = Quen_pathEntryKind(entry);
  Quen_cachePathEntryKind(entry, kind);
  const std::string name = Quen_visiblePathString(entry.filename(), false);
  void* element = Quen_allocString(name);
  quen_collections_ArrayList_add(names, element);
}

}  // namespace

// Queries. Existence and kinds are answered by the runtime.

bool quen_io_FileInputStream__existsPath(const char* path) {
  if (isEmpty(path)) return false;
  return Quen_pathExists(Quen_runtimeFsPath(path));
}

bool quen_io_FileInputStream__isRegularPath(const char* path) {
  if (isEmpty(path)) return false;
  return Quen_pathEntryKind(Quen_runtimeFsPath(path)) == QuenPathEntryKind::kRegularFile;
}

std::int64_t quen_io_FileInputStream__sizePath(const char* path) {
  if (isEmpty(path)) return 0;
  return sizeOrZero(Quen_runtimeFsPath(path));
}

bool quen_io_Path__exists(void* self) {
  if (self == nullptr) {
    Quen_raise("NullException", "Cannot read Path.exists on null");
    return false;
  }
  return quen_io_FileInputStream__existsPath(Quen_filePathFromObject(self));
}

bool quen_io_Path__isRegular(void* self) {
  return quen_io_FileInputStream__isRegularPath(Quen_filePathFromObject(self));
}

bool quen_io_Path__isDirectory(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;
  return Quen_pathEntryKind(Quen_runtimeFsPath(text)) == QuenPathEntryKind::kDirectory;
}

bool quen_io_Path__isSymlink(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;
  std::error_code error;
  return fs::is_symlink(fs::symlink_status(Quen_runtimeFsPath(text), error));
}

std::int64_t quen_io_Path__size(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return 0;
  const fs::path path = Quen_runtimeFsPath(text);
  std::error_code error;
  if (!fs::is_regular_file(fs::status(path, error))) return 0;
  return sizeOrZero(path);
}

std::int64_t quen_io_Path__lastModified(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return 0;
  std::error_code error;
  const fs::file_time_type written = fs::last_write_time(Quen_runtimeFsPath(text), error);
  return error ? 0 : millisecondsSinceEpoch(written);
}

// Changes to one entry.

void quen_io_Path_remove(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return raiseIOException("Path is empty");
  std::error_code error;
  const bool removed = fs::remove(Quen_runtimeFsPath(text), error);
  if (error || !removed) raiseIOException("Cannot remove path");
}

void quen_io_FolderPath__mkdirNative(const char* path) {
  const std::optional<fs::path> folder = missingFolderOrRaise(path);
  std::error_code error;
  if (folder && !fs::create_directory(*folder, error)) raiseIOException("Cannot create directory");
}

void quen_io_FolderPath__mkdirsNative(const char* path) {
  const std::optional<fs::path> folder = missingFolderOrRaise(path);
  std::error_code error;
  if (folder) fs::create_directories(*folder, error);
  if (error) raiseIOException("Cannot create directories");
}

void quen_io_Path_rename(void* self, const char* newName) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text) || isEmpty(newName)) return raiseIOException("Invalid path");
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
  const fs::path source = Quen_runtimeFsPath(text);
  const fs::path target = source.parent_path() / Quen_runtimeFsPath(newName);

  std::error_code error;
  fs::rename(source, target, error);
  if (error) return raiseIOException("Cannot rename path");
  void* targetText = Quen_allocPathString(target, windowsRoot);
  Quen_setField_ptr(self, "_path", targetText);
}

void quen_io_FilePath_touch(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return raiseIOException("Path is empty");
  const fs::path path = Quen_runtimeFsPath(text);

  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::exists(status)) {
    if (fs::is_directory(fs::status(path, error))) return raiseIOException("Path is a directory");
    fs::last_write_time(path, fs::file_time_type::clock::now(), error);
    if (error) raiseIOException("Cannot update file timestamp");
    return;
  }
  if (status.type() == fs::file_type::none && error) return raiseIOException("Cannot access path");

  std::ofstream file(path, std::ios::out | std::ios::binary | std::ios::app);
  if (!file) return raiseIOException("Cannot create file");
  file.close();
  if (!file.good()) raiseIOException("Cannot create file");
}

// Recursive removal and its guard.

bool Quen_isUnsafeRecursiveDeletePath(const char* path) {
  if (isEmpty(path) || containsParentTraversalSegment(path)) return true;
  std::error_code error;
  const fs::path absolute = fs::absolute(Quen_runtimeFsPath(path), error);
  if (error) return true;

  const fs::path candidate = absolute.lexically_normal();
  const fs::path root = candidate.root_path().lexically_normal();
  const bool isRoot = root.empty() || candidate == root || candidate.relative_path().empty();
  if (isRoot || isProtected(candidate)) return true;
  const fs::path canonical = fs::weakly_canonical(candidate, error);
  return !error && isProtected(canonical);
}

void quen_io_FolderPath__removeAllNative(const char* path) {
  if (isEmpty(path)) return raiseIOException("Path is empty");
  if (Quen_isUnsafeRecursiveDeletePath(path)) {
    return raiseIOException("Recursive deletion rejects unsafe root or parent traversal");
  }
  std::error_code error;
  fs::remove_all(Quen_runtimeFsPath(path), error);
  if (error) raiseIOException("Cannot remove directory recursively");
}

// Listing. A C++ exception during a step is raised as an exception with the same message.

void* quen_io_FolderPath__listNamesNative(const char* path) {
  void* names = Quen_allocObject("ArrayList");
  if (isEmpty(path)) return names;
  try {
    const fs::path folder = Quen_runtimeFsPath(path);
    std::error_code error;
    fs::directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
    while (!error && entry != fs::directory_iterator()) {
      addEntry(names, entry->path());
      entry.increment(error);
    }
    if (error) raiseIOException("Cannot enumerate directory");
  } catch (const std::exception& failure) {
    raiseIOException(isEmpty(failure.what()) ? "Cannot enumerate directory" : failure.what());
  } catch (...) {
    raiseIOException("Cannot enumerate directory");
  }
  return names;
}
