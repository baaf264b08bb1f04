// A FUSE file system that passes everything on to a folder, except for the faults of a plan:
//
//     quen_io_fault_fs FOLDER MOUNT PLAN
//
// Its paths begin with the number of a thread and the parent of a form's folder, which ends in "-p"
// or "-m": /3/3-m/folder/a. Prints "mounted" when it is ready, and exits when it is unmounted.

#define FUSE_USE_VERSION 31

#include <fcntl.h>
#include <fuse3/fuse.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/soak/faults.h"

namespace fs = std::filesystem;
using namespace quen::soak;

namespace {

int gRoot = -1;
Plan* gPlan = nullptr;

// Paths of FUSE begin with '/'.
const char* below(const char* path) { return path[1] == '\0' ? "." : path + 1; }

int answer(std::int64_t result) { return result < 0 ? -errno : static_cast<int>(result); }

// The thread and form that a path belongs to, and the rest of the path.
struct Place {
  Lane* lane = nullptr;  // null above the folders of the forms
  Met* met = nullptr;
  std::string rest;
};

Place placeOf(std::string_view path) {
  const std::size_t form = path.find('/', 1);
  const std::size_t rest = form == std::string_view::npos ? form : path.find('/', form + 1);
  if (rest == std::string_view::npos) return {};
  const auto number = static_cast<std::size_t>(std::atoi(path.data() + 1));
  if (number >= kLanes) return {};
  Lane& lane = gPlan->lanes.at(number);
  return {&lane, &lane.met.at(path[rest - 1] == 'm' ? 1 : 0), std::string(path.substr(rest + 1))};
}

void count(const Place& place, Operation operation, Kind kind) {
  const auto index = static_cast<std::size_t>(operation);
  ++place.met->faults.at(index).at(static_cast<std::size_t>(kind));
  if (kind != Kind::kDelay) place.met->during |= std::uint64_t{1} << index;
}

// The fault of an operation; waits if it is delayed.
Fault decide(const Place& place, Operation operation) {
  if (place.lane == nullptr) return {};
  ++place.lane->requests;
  if (!place.lane->faulty) return {};
  const Fault fault = faultOf(place.lane->seed, operation, place.rest);
  if (fault.delayMicroseconds > 0) {
    count(place, operation, Kind::kDelay);
    usleep(fault.delayMicroseconds);
  }
  return fault;
}

// The error of an operation that transfers nothing; 0 if it is to be passed on.
int errorOf(const Place& place, Operation operation) {
  const Fault fault = decide(place, operation);
  if (fault.error == 0) return 0;
  count(place, operation, Kind::kError);
  return -fault.error;
}

int errorOf(const char* path, Operation operation) { return errorOf(placeOf(path), operation); }

// The files of which a write failed midway: every later write fails until the program ends, even if
// the file was truncated. For whether bytes that could not be written are tried again is an allowed
// difference between the forms, which would show in the file if the second attempt succeeded.
class FullFiles {
 public:
  bool contains(const Place& place) {
    const std::lock_guard lock(mutex_);
    const auto found = runs_.find(keyOf(place));
    return found != runs_.end() && found->second == place.lane->run;
  }

  void add(const Place& place) {
    const std::lock_guard lock(mutex_);
    runs_[keyOf(place)] = place.lane->run;
  }

 private:
  using Key = std::pair<const Met*, std::string>;
  static Key keyOf(const Place& place) { return {place.met, place.rest}; }

  std::mutex mutex_;
  std::map<Key, std::uint64_t> runs_;  // the program in which the file became full
};

FullFiles& fullFiles() {
  static FullFiles all;
  return all;
}

struct OpenFile {
  int descriptor;
  bool appends;
  Place place;
  std::atomic<std::uint64_t> reads{0};
  std::atomic<std::uint64_t> writes{0};
};

struct OpenFolder {
  std::vector<std::string> names;
  Place place;
};

OpenFile& fileOf(const fuse_file_info* info) { return *reinterpret_cast<OpenFile*>(info->fh); }
OpenFolder& folderOf(const fuse_file_info* info) {
  return *reinterpret_cast<OpenFolder*>(info->fh);
}

int getStatus(const char* path, struct stat* status, fuse_file_info* info) {
  if (info != nullptr) return answer(fstat(fileOf(info).descriptor, status));
  if (const int error = errorOf(path, Operation::kStatus)) return error;
  return answer(fstatat(gRoot, below(path), status, AT_SYMLINK_NOFOLLOW));
}

int readLink(const char* path, char* buffer, std::size_t size) {
  if (const int error = errorOf(path, Operation::kReadLink)) return error;
  const ssize_t length = readlinkat(gRoot, below(path), buffer, size - 1);
  if (length < 0) return -errno;
  buffer[length] = '\0';
  return 0;
}

int makeFolder(const char* path, mode_t mode) {
  if (const int error = errorOf(path, Operation::kMakeFolder)) return error;
  return answer(mkdirat(gRoot, below(path), mode));
}

int removeFile(const char* path) {
  if (const int error = errorOf(path, Operation::kUnlink)) return error;
  return answer(unlinkat(gRoot, below(path), 0));
}

int removeFolder(const char* path) {
  if (const int error = errorOf(path, Operation::kRemoveFolder)) return error;
  return answer(unlinkat(gRoot, below(path), AT_REMOVEDIR));
}

int makeLink(const char* target, const char* path) {
  return answer(symlinkat(target, gRoot, below(path)));
}

int makeHardLink(const char* from, const char* to) {
  return answer(linkat(gRoot, below(from), gRoot, below(to), 0));
}

int renameEntry(const char* from, const char* to, unsigned int flags) {
  if (const int error = errorOf(from, Operation::kRename)) return error;
  return answer(renameat2(gRoot, below(from), gRoot, below(to), flags));
}

int changeMode(const char* path, mode_t mode, fuse_file_info*) {
  return answer(fchmodat(gRoot, below(path), mode, 0));
}

int truncateFile(const char* path, off_t size, fuse_file_info* info) {
  if (info != nullptr) {
    const OpenFile& file = fileOf(info);
    if (const int error = errorOf(file.place, Operation::kTruncate)) return error;
    return answer(ftruncate(file.descriptor, size));
  }
  if (const int error = errorOf(path, Operation::kTruncate)) return error;
  const int descriptor = openat(gRoot, below(path), O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) return -errno;
  const int result = answer(ftruncate(descriptor, size));
  close(descriptor);
  return result;
}

int setTimes(const char* path, const timespec* times, fuse_file_info* info) {
  if (path == nullptr) return answer(futimens(fileOf(info).descriptor, times));
  if (const int error = errorOf(path, Operation::kSetTimes)) return error;
  return answer(utimensat(gRoot, below(path), times, AT_SYMLINK_NOFOLLOW));
}

int openAs(const char* path, Operation operation, int flags, mode_t mode, fuse_file_info* info) {
  if (const int error = errorOf(path, operation)) return error;
  const int descriptor = openat(gRoot, below(path), flags | O_CLOEXEC | O_NOFOLLOW, mode);
  if (descriptor < 0) return -errno;
  info->fh = reinterpret_cast<std::uint64_t>(
      new OpenFile{descriptor, (flags & O_APPEND) != 0, placeOf(path)});
  info->direct_io = 1;  // bypasses the page cache, so that each request arrives unchanged
  return 0;
}

int openFile(const char* path, fuse_file_info* info) {
  return openAs(path, Operation::kOpen, info->flags, 0, info);
}

int createFile(const char* path, mode_t mode, fuse_file_info* info) {
  return openAs(path, Operation::kCreate, info->flags | O_CREAT, mode, info);
}

// How many bytes of a transfer to pass on; negative for an error.
std::int64_t allowed(const OpenFile& file, Operation operation, std::atomic<std::uint64_t>& count,
                     std::size_t size, off_t offset) {
  const Fault fault = decide(file.place, operation);
  const auto met = [&](Kind kind) { ::count(file.place, operation, kind); };
  if (fault.interrupts && count++ % 2 == 0) {
    met(Kind::kInterruption);
    return -EINTR;
  }
  if (fault.interrupts) return static_cast<std::int64_t>(size);
  const bool midway = fault.error != 0 && fault.failsFrom > 0;
  const bool writes = operation == Operation::kWrite;
  if (offset >= fault.failsFrom || (midway && writes && fullFiles().contains(file.place))) {
    met(midway ? Kind::kMidway : Kind::kError);
    if (midway && writes) fullFiles().add(file.place);
    return -fault.error;
  }
  // Behind the beginning of a file, transfers are longer, or a large file would take minutes.
  constexpr off_t kBeginning = 4'096;
  constexpr std::size_t kLeastBehind = 512;
  const std::size_t atMost = offset < kBeginning ? fault.most : std::max(fault.most, kLeastBehind);
  const std::size_t most = std::min(atMost, static_cast<std::size_t>(fault.failsFrom - offset));
  if (most < size) met(Kind::kShort);
  return static_cast<std::int64_t>(std::min(most, size));
}

int readFile(const char*, char* buffer, std::size_t size, off_t offset, fuse_file_info* info) {
  OpenFile& file = fileOf(info);
  const std::int64_t most = allowed(file, Operation::kRead, file.reads, size, offset);
  if (most < 0) return static_cast<int>(most);
  return answer(pread(file.descriptor, buffer, static_cast<std::size_t>(most), offset));
}

int writeFile(const char*, const char* bytes, std::size_t size, off_t offset,
              fuse_file_info* info) {
  OpenFile& file = fileOf(info);
  if (file.appends) offset = lseek(file.descriptor, 0, SEEK_END);
  const std::int64_t most = allowed(file, Operation::kWrite, file.writes, size, offset);
  if (most < 0) return static_cast<int>(most);
  return answer(pwrite(file.descriptor, bytes, static_cast<std::size_t>(most), offset));
}

int closeFile(const char*, fuse_file_info* info) {
  return errorOf(fileOf(info).place, Operation::kClose);
}

int releaseFile(const char*, fuse_file_info* info) {
  close(fileOf(info).descriptor);
  delete &fileOf(info);
  return 0;
}

int openFolder(const char* path, fuse_file_info* info) {
  if (const int error = errorOf(path, Operation::kOpenFolder)) return error;
  auto opened = std::make_unique<OpenFolder>();
  opened->place = placeOf(path);
  opened->names = {".", ".."};
  std::error_code error;
  const fs::path folder = "/proc/self/fd/" + std::to_string(gRoot) + path;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    opened->names.push_back(entry->path().filename());
  }
  if (error) return -error.value();
  info->fh = reinterpret_cast<std::uint64_t>(opened.release());
  return 0;
}

int listFolder(const char*, void* buffer, fuse_fill_dir_t fill, off_t offset, fuse_file_info* info,
               fuse_readdir_flags) {
  const OpenFolder& folder = folderOf(info);
  const Fault fault = decide(folder.place, Operation::kReadFolder);
  if (offset >= fault.failsFrom) {
    count(folder.place, Operation::kReadFolder,
          fault.failsFrom == 0 ? Kind::kError : Kind::kMidway);
    return -fault.error;
  }
  const auto end = static_cast<off_t>(folder.names.size());
  for (off_t i = offset; i < std::min<off_t>(end, fault.failsFrom); ++i) {
    const std::string& name = folder.names.at(static_cast<std::size_t>(i));
    if (fill(buffer, name.c_str(), nullptr, i + 1, fuse_fill_dir_flags{}) != 0) break;
  }
  return 0;
}

int releaseFolder(const char*, fuse_file_info* info) {
  delete &folderOf(info);
  return 0;
}

void* start(fuse_conn_info* connection, fuse_config* config) {
  // An open with O_TRUNC then is an open and a truncation, either of which can fail.
  connection->want &= ~static_cast<unsigned>(FUSE_CAP_ATOMIC_O_TRUNC);
  config->attr_timeout = 0;
  config->entry_timeout = 0;
  config->negative_timeout = 0;
  config->use_ino = 1;
  config->hard_remove = 1;  // no hidden files in place of open ones that are removed,
  config->nullpath_ok = 1;  // which then have no path
  umask(0);
  std::puts("mounted");
  static_cast<void>(std::fflush(stdout));
  return nullptr;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  gRoot = open(arguments[1], O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (gRoot < 0) return 1;
  gPlan = &mapPlan(arguments[3]);
  fuse_operations operations{};
  operations.getattr = getStatus;
  operations.readlink = readLink;
  operations.mkdir = makeFolder;
  operations.unlink = removeFile;
  operations.rmdir = removeFolder;
  operations.symlink = makeLink;
  operations.link = makeHardLink;
  operations.rename = renameEntry;
  operations.chmod = changeMode;
  operations.truncate = truncateFile;
  operations.utimens = setTimes;
  operations.open = openFile;
  operations.create = createFile;
  operations.read = readFile;
  operations.write = writeFile;
  operations.flush = closeFile;
  operations.release = releaseFile;
  operations.opendir = openFolder;
  operations.readdir = listFolder;
  operations.releasedir = releaseFolder;
  operations.init = start;
  std::array<char*, 5> options = {arguments[0], const_cast<char*>("-f"), const_cast<char*>("-o"),
                                  const_cast<char*>("max_threads=20,max_idle_threads=20"),
                                  arguments[2]};
  return fuse_main(static_cast<int>(options.size()), options.data(), &operations, nullptr);
}
