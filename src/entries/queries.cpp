// Questions about one entry: existence, kind, size, time.
//
// The runtime answers existence and the two kinds; link, size and time are read from the file
// system on each call. A failure gives false or 0.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

std::int64_t sizeOrZero(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

// Nanoseconds as an unsigned number. Differences and sums wrap around, where signed ones would
// overflow: the file clock cannot express times before 1882, so the library's result has wrapped
// around already, and adding the epoch brings it back.
template <class Time>
std::uint64_t ticks(const Time& time) {
  const std::chrono::nanoseconds sinceEpoch = time.time_since_epoch();
  return static_cast<std::uint64_t>(sinceEpoch.count());
}

bool isOfKind(void* object, QuenPathEntryKind kind) {
  const char* text = Quen_filePathFromObject(object);
  return !isEmpty(text) && Quen_pathEntryKind(Quen_runtimeFsPath(text)) == kind;
}

}  // namespace

bool quen_io_FileInputStream__existsPath(const char* path) {
  return !isEmpty(path) && Quen_pathExists(Quen_runtimeFsPath(path));
}

bool quen_io_FileInputStream__isRegularPath(const char* path) {
  return !isEmpty(path) &&
         Quen_pathEntryKind(Quen_runtimeFsPath(path)) == QuenPathEntryKind::kRegularFile;
}

// fs::file_size fails by itself for anything but a regular file, so no status is read first.
std::int64_t quen_io_FileInputStream__sizePath(const char* path) {
  return isEmpty(path) ? 0 : sizeOrZero(Quen_runtimeFsPath(path));
}

bool quen_io_Path__exists(void* self) {
  if (self == nullptr) {
    Quen_raise("NullException", "Cannot read Path.exists on null");
    return false;
  }
  const char* text = Quen_filePathFromObject(self);
  return !isEmpty(text) && Quen_pathExists(Quen_runtimeFsPath(text));
}

bool quen_io_Path__isRegular(void* self) { return isOfKind(self, QuenPathEntryKind::kRegularFile); }

bool quen_io_Path__isDirectory(void* self) { return isOfKind(self, QuenPathEntryKind::kDirectory); }

// symlink_status does not follow the link, so a dangling link is a link, too.
bool quen_io_Path__isSymlink(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;

  std::error_code error;
  const fs::file_status status = fs::symlink_status(Quen_runtimeFsPath(text), error);
  return !error && fs::is_symlink(status);
}

std::int64_t quen_io_Path__size(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return 0;

  const fs::path path = Quen_runtimeFsPath(text);
  std::error_code error;
  return fs::is_regular_file(fs::status(path, error)) ? sizeOrZero(path) : 0;
}

// Converts from the file clock to the system clock by the current readings of both. The system
// clock is read first, so the result can be early by the time between the two readings, never late.
std::int64_t quen_io_Path__lastModified(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return 0;

  std::error_code error;
  const fs::file_time_type written = fs::last_write_time(Quen_runtimeFsPath(text), error);
  if (error) return 0;

  const auto systemNow = std::chrono::system_clock::now();
  const auto fileNow = fs::file_time_type::clock::now();
  const std::uint64_t time = ticks(written) - ticks(fileNow) + ticks(systemNow);
  const std::chrono::nanoseconds sinceEpoch(static_cast<std::int64_t>(time));
  return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

bool __quen_propget_quen_io_Path_exists(void* self) { return quen_io_Path__exists(self); }
bool __quen_propget_quen_io_Path_isRegular(void* self) { return quen_io_Path__isRegular(self); }
bool __quen_propget_quen_io_Path_isDirectory(void* self) { return quen_io_Path__isDirectory(self); }
bool __quen_propget_quen_io_Path_isSymlink(void* self) { return quen_io_Path__isSymlink(self); }
std::int64_t __quen_propget_quen_io_Path_size(void* self) { return quen_io_Path__size(self); }
std::int64_t __quen_propget_quen_io_Path_lastModified(void* self) {
  return quen_io_Path__lastModified(self);
}
