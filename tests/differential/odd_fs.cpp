// A FUSE file system whose files misbehave, each in the way that its name says:
//
//     quen_io_odd_fs FOLDER
//
// It has two folders with the same entries, "plain" and "module", so that each form starts from
// unused files. Prints "mounted" when it is ready, and exits when it is unmounted.

#define FUSE_USE_VERSION 31

#include <fuse3/fuse.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

// How a file differs from an ordinary one.
struct Odd {
  std::string_view name;
  std::int64_t content = 0;   // initial number of bytes
  std::int64_t claimed = -1;  // st_size; -1 for the real size
  std::size_t readsAtMost = kNoLimit;
  std::size_t writesAtMost = kNoLimit;
  std::int64_t readFailsAt = -1;  // from this offset on
  std::int64_t fullAt = -1;       // ENOSPC from this offset on
  int readError = 0;              // of every other read, starting with the first
  int writeError = 0;             // of every other write, starting with the first
  bool writes = true;             // whether any write succeeds
  int openError = 0;
  int flushError = 0;  // of close(2)
  int timeError = 0;
  int renameError = 0;
  int removeError = 0;
  bool seekable = true;
};

constexpr std::int64_t kContent = 100'000;

constexpr std::array kFiles = {
    Odd{.name = "ordinary", .content = kContent},
    Odd{.name = "short_reads", .content = kContent, .readsAtMost = 997},
    Odd{.name = "single_bytes", .content = 3'000, .readsAtMost = 1},
    Odd{.name = "fails_at_once", .content = kContent, .readFailsAt = 0},
    Odd{.name = "fails_soon", .content = kContent, .readFailsAt = 100},
    Odd{.name = "fails_in_the_middle", .content = kContent, .readFailsAt = 70'000},
    Odd{.name = "claims_nothing", .content = kContent, .claimed = 0},
    Odd{.name = "claims_less", .content = kContent, .claimed = 10},
    Odd{.name = "claims_more", .content = kContent, .claimed = std::int64_t{1} << 40},
    Odd{.name = "claims_everything",
        .content = kContent,
        .claimed = std::numeric_limits<std::int64_t>::max()},
    Odd{.name = "claims_and_has_nothing", .content = 0, .claimed = 5'000},
    Odd{.name = "no_seek", .content = kContent, .seekable = false},
    Odd{.name = "interrupted_reads", .content = kContent, .readError = EINTR},
    Odd{.name = "reads_that_would_block", .content = kContent, .readError = EAGAIN},
    Odd{.name = "short_writes", .writesAtMost = 1'000},
    Odd{.name = "full_after_5000", .fullAt = 5'000},
    Odd{.name = "full", .fullAt = 0},
    Odd{.name = "interrupted_writes", .writeError = EINTR},
    Odd{.name = "failing_writes", .writes = false},
    Odd{.name = "failing_close", .flushError = EIO},
    Odd{.name = "failing_open", .content = 10, .openError = EIO},
    Odd{.name = "busy",
        .content = 10,
        .openError = EBUSY,
        .renameError = EBUSY,
        .removeError = EBUSY},
    Odd{.name = "unknown_time", .content = 10, .timeError = EPERM},
};

// A folder whose listing fails after so many entries, "." and ".." included.
struct OddFolder {
  std::string_view name;
  std::size_t entries;
  int error;
};

constexpr std::array kFolders = {
    OddFolder{"breaks_off", 5, EIO},        OddFolder{"breaks_off_at_once", 0, EIO},
    OddFolder{"denied", 5, EACCES},         OddFolder{"denied_after_dots", 2, EACCES},
    OddFolder{"denied_at_once", 0, EACCES},
};

struct File {
  const Odd* odd;
  std::string bytes;
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
};

// UTF-8 sequences of one to three bytes, so that short reads split them.
std::string contentOf(std::int64_t size) {
  constexpr std::string_view kCharacters = "abc\xC3\xA9\xE2\x82\xAC";
  std::string content(static_cast<std::size_t>(size), ' ');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = kCharacters[i % kCharacters.size()];
  return content;
}

// All files by path. No lock is needed, because one thread serves all requests.
std::map<std::string, File>& files() {
  static std::map<std::string, File> all = [] {
    std::map<std::string, File> made;
    for (const char* folder : {"/plain/", "/module/"}) {
      for (const Odd& odd : kFiles) {
        made.emplace(folder + std::string(odd.name), File{&odd, contentOf(odd.content)});
      }
    }
    return made;
  }();
  return all;
}

File* find(const char* path) {
  const auto file = files().find(path);
  return file == files().end() ? nullptr : &file->second;
}

const OddFolder* findFolder(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  const auto* const folder =
      std::find_if(kFolders.begin(), kFolders.end(),
                   [name](const OddFolder& each) { return each.name == name; });
  return folder == kFolders.end() ? nullptr : folder;
}

bool isFolder(std::string_view path) {
  return path == "/" || path == "/plain" || path == "/module" || findFolder(path) != nullptr;
}

int getStatus(const char* path, struct stat* status, fuse_file_info*) {
  *status = {};
  if (isFolder(path)) {
    status->st_mode = S_IFDIR | 0755;
    status->st_nlink = 2;
    return 0;
  }
  if (std::string_view(path).ends_with("/failing_status")) return -EIO;
  const File* file = find(path);
  if (file == nullptr) return -ENOENT;
  status->st_mode = S_IFREG | 0644;
  status->st_nlink = 1;
  const bool lies = file->odd->claimed >= 0;
  status->st_size = lies ? file->odd->claimed : static_cast<std::int64_t>(file->bytes.size());
  status->st_mtim.tv_sec = 1'000'000'000;
  status->st_mtim.tv_nsec = 500'000'000;
  return 0;
}

int openFile(const char* path, fuse_file_info* info) {
  File* file = find(path);
  if (file == nullptr) return -ENOENT;
  if (file->odd->openError != 0) return -file->odd->openError;
  file->reads = 0;
  file->writes = 0;
  info->direct_io = 1;  // bypasses the page cache, so that each request arrives unchanged
  info->nonseekable = file->odd->seekable ? 0 : 1;
  return 0;
}

int readFile(const char* path, char* buffer, std::size_t size, off_t offset, fuse_file_info*) {
  File* file = find(path);
  if (file == nullptr) return -ENOENT;
  const Odd& odd = *file->odd;
  if (odd.readError != 0 && file->reads++ % 2 == 0) return -odd.readError;
  if (odd.readFailsAt >= 0 && offset >= odd.readFailsAt) return -EIO;
  if (offset >= static_cast<off_t>(file->bytes.size())) return 0;

  const auto start = static_cast<std::size_t>(offset);
  std::size_t count = std::min({size, odd.readsAtMost, file->bytes.size() - start});
  if (odd.readFailsAt >= 0) {
    count = std::min(count, static_cast<std::size_t>(odd.readFailsAt) - start);
  }
  std::memcpy(buffer, file->bytes.data() + start, count);
  return static_cast<int>(count);
}

int writeFile(const char* path, const char* bytes, std::size_t size, off_t offset,
              fuse_file_info*) {
  File* file = find(path);
  if (file == nullptr) return -ENOENT;
  const Odd& odd = *file->odd;
  if (!odd.writes) return -EIO;
  if (odd.writeError != 0 && file->writes++ % 2 == 0) return -odd.writeError;
  const auto start = static_cast<std::size_t>(offset);
  std::size_t count = std::min(size, odd.writesAtMost);
  if (odd.fullAt >= 0) {
    if (offset >= odd.fullAt) return -ENOSPC;
    count = std::min(count, static_cast<std::size_t>(odd.fullAt) - start);
  }
  if (file->bytes.size() < start + count) file->bytes.resize(start + count);
  file->bytes.replace(start, count, bytes, count);
  return static_cast<int>(count);
}

int truncateFile(const char* path, off_t size, fuse_file_info*) {
  File* file = find(path);
  if (file == nullptr) return -ENOENT;
  file->bytes.resize(static_cast<std::size_t>(size));
  return 0;
}

int flushFile(const char* path, fuse_file_info*) {
  const File* file = find(path);
  return file == nullptr ? -ENOENT : -file->odd->flushError;
}

int setTime(const char* path, const timespec*, fuse_file_info*) {
  const File* file = find(path);
  return file == nullptr ? -ENOENT : -file->odd->timeError;
}

int renameFile(const char* from, const char* to, unsigned int) {
  const auto file = files().find(from);
  if (file == files().end()) return -ENOENT;
  if (file->second.odd->renameError != 0) return -file->second.odd->renameError;
  File moved = std::move(file->second);
  files().erase(file);
  files().insert_or_assign(to, std::move(moved));
  return 0;
}

int removeFile(const char* path) {
  const File* file = find(path);
  if (file == nullptr) return -ENOENT;
  if (file->odd->removeError != 0) return -file->odd->removeError;
  files().erase(path);
  return 0;
}

// A new file behaves like the file whose name is a prefix of its own, so that the temporary file of
// a publication misbehaves like its target.
int createFile(const char* path, mode_t, fuse_file_info* info) {
  const std::string_view name =
      std::string_view(path).substr(std::string_view(path).rfind('/') + 1);
  const Odd* odd = &kFiles.front();
  for (const Odd& each : kFiles) {
    if (name.starts_with(each.name) && each.name.size() >= odd->name.size()) odd = &each;
  }
  if (!name.starts_with(odd->name)) odd = &kFiles.front();
  files().insert_or_assign(path, File{odd, ""});
  return openFile(path, info);
}

int listFolder(const char* path, void* buffer, fuse_fill_dir_t fill, off_t offset, fuse_file_info*,
               fuse_readdir_flags) {
  const std::string_view folder = path;
  if (const OddFolder* odd = findFolder(folder)) {
    constexpr std::array kEntries = {".", "..", "one", "two", "three"};
    const auto start = static_cast<std::size_t>(offset);
    if (start >= odd->entries) return -odd->error;
    for (std::size_t i = start; i < odd->entries; ++i) {
      const auto following = static_cast<off_t>(i + 1);
      fill(buffer, kEntries.at(i), nullptr, following, fuse_fill_dir_flags{});
    }
    return 0;
  }
  for (const auto& [file, state] : files()) {
    if (!file.starts_with(std::string(folder) + '/')) continue;
    fill(buffer, file.c_str() + folder.size() + 1, nullptr, 0, fuse_fill_dir_flags{});
  }
  return 0;
}

void* start(fuse_conn_info*, fuse_config* config) {
  config->attr_timeout = 0;
  config->entry_timeout = 0;
  config->negative_timeout = 0;
  std::puts("mounted");
  static_cast<void>(std::fflush(stdout));
  return nullptr;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  fuse_operations operations{};
  operations.getattr = getStatus;
  operations.open = openFile;
  operations.read = readFile;
  operations.write = writeFile;
  operations.truncate = truncateFile;
  operations.flush = flushFile;
  operations.utimens = setTime;
  operations.rename = renameFile;
  operations.unlink = removeFile;
  operations.create = createFile;
  operations.readdir = listFolder;
  operations.init = start;
  std::array<char*, 4> options = {arguments[0], const_cast<char*>("-f"), const_cast<char*>("-s"),
                                  arguments[1]};
  return fuse_main(static_cast<int>(options.size()), options.data(), &operations, nullptr);
}
