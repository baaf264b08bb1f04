// Changes to one entry: remove, rename, touch, make directories.
//
// Each checks its arguments, reads the status where it matters, and then makes the change. Losing a
// race in between is an error, nothing is undone, and no kind is recorded.

#include <filesystem>
#include <fstream>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

// Whether a directory has to be made. An existing directory is success; any other existing entry
// raises. The status is read twice on purpose, once for existence and once for the kind: an entry
// that another process removes in between raises, too.
bool isVacantOrRaise(const fs::path& path) {
  std::error_code error;
  if (!fs::exists(fs::status(path, error))) return true;

  const fs::file_status present = fs::status(path, error);
  if (error || !fs::is_directory(present)) {
    raiseIOException("A non-directory path already exists");
  }
  return false;
}

void updateTimeOrRaise(const fs::path& path) {
  std::error_code error;
  if (fs::is_directory(fs::status(path, error))) {
    raiseIOException("Path is a directory");
    return;
  }
  fs::last_write_time(path, fs::file_time_type::clock::now(), error);
  if (error) raiseIOException("Cannot update file timestamp");
}

// Opened to append, so that bytes that another process writes in the meantime are kept. Closing a
// stream that is not open sets its failbit, so a failure to open shows as well.
void createFileOrRaise(const fs::path& path) {
  std::ofstream file(path, std::ios::out | std::ios::binary | std::ios::app);
  file.close();
  if (!file.good()) raiseIOException("Cannot create file");
}

}  // namespace

// A missing entry is an error.
void quen_io_Path_remove(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (!requirePath(text, "Path is empty")) return;

  std::error_code error;
  const bool removed = fs::remove(Quen_runtimeFsPath(text), error);
  if (error || !removed) raiseIOException("Cannot remove path");
}

// An absolute new name replaces the parent, so the entry moves there.
void quen_io_Path_rename(void* self, const char* newName) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text) || isEmpty(newName)) {
    raiseIOException("Invalid path");
    return;
  }
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
  const fs::path source = Quen_runtimeFsPath(text);
  const fs::path name = Quen_runtimeFsPath(newName);
  const fs::path target = source.parent_path() / name;

  std::error_code error;
  fs::rename(source, target, error);
  if (error) {
    raiseIOException("Cannot rename path");
    return;
  }
  void* targetText = Quen_allocPathString(target, windowsRoot);
  Quen_setField_ptr(self, "_path", targetText);
}

void quen_io_FilePath_touch(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (!requirePath(text, "Path is empty")) return;

  const fs::path path = Quen_runtimeFsPath(text);
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::exists(status)) return updateTimeOrRaise(path);
  if (!fs::status_known(status)) return raiseIOException("Cannot access path");
  createFileOrRaise(path);
}

// Losing the race against another process that makes the same directory is an error.
void quen_io_FolderPath__mkdirNative(const char* path) {
  if (!requirePath(path, "Path is empty")) return;
  const fs::path folder = Quen_runtimeFsPath(path);
  if (!isVacantOrRaise(folder)) return;

  std::error_code error;
  const bool created = fs::create_directory(folder, error);
  if (error || !created) raiseIOException("Cannot create directory");
}

// Unlike above, losing the race is no error: the directory exists.
void quen_io_FolderPath__mkdirsNative(const char* path) {
  if (!requirePath(path, "Path is empty")) return;
  const fs::path folder = Quen_runtimeFsPath(path);
  if (!isVacantOrRaise(folder)) return;

  std::error_code error;
  fs::create_directories(folder, error);
  if (error) raiseIOException("Cannot create directories");
}

void quen_io_Path_touch(void* self) { quen_io_FilePath_touch(self); }
