// The limit: the necessary system calls and passes over memory, and nothing else.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/implementations/implementation.h"
#include "contents/utf8.h"

using namespace quen::bench;

namespace {

struct Free {
  void operator()(char* bytes) const { std::free(bytes); }
};
using Memory = std::unique_ptr<char[], Free>;

// Not zeroed, and aligned to a cache line, which keeps copies clear of 4 KiB aliasing.
Memory memoryOf(std::size_t size) {
  constexpr std::size_t kAlignment = 64;
  const std::size_t whole = (size / kAlignment + 1) * kAlignment;
  return Memory(static_cast<char*>(std::aligned_alloc(kAlignment, whole)));
}

int require(int result) {
  if (result < 0) throw std::runtime_error(std::strerror(errno));
  return result;
}

std::size_t requireSize(ssize_t result) {
  if (result < 0) throw std::runtime_error(std::strerror(errno));
  return static_cast<std::size_t>(result);
}

int openToRead(const std::string& path) {
  return require(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

int openToWrite(const std::string& path) {
  return require(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

std::uint64_t isValid(std::string_view text) {
  std::uint64_t errorOffset = 0;
  return quen::io::validateUtf8(text, errorOffset) ? 1U : 0U;
}

// One read into fresh memory, and the close.
Memory readAndClose(int file, std::size_t limit, std::size_t& size) {
  Memory bytes = memoryOf(limit);
  size = requireSize(read(file, bytes.get(), limit));
  close(file);
  return bytes;
}

Memory readWhole(const std::string& path, std::size_t& size) {
  const int file = openToRead(path);
  struct stat status {};
  require(fstat(file, &status));
  return readAndClose(file, static_cast<std::size_t>(status.st_size), size);
}

// Visits every entry except "." and "..", recursively for the folders that `visit` adds, with
// getdents64 and without copying its records.
template <class Visit>
void forEachEntry(const std::string& folder, const Visit& visit) {
  static thread_local std::vector<char> records(32 * 1024);
  const int handle = require(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<std::string> folders;
  while (const std::size_t filled =
             requireSize(syscall(SYS_getdents64, handle, records.data(), records.size()))) {
    for (std::size_t at = 0; at < filled;) {
      const auto* entry = reinterpret_cast<const dirent64*>(records.data() + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") visit(folder, handle, *entry, folders);
    }
  }
  close(handle);
  for (const std::string& below : folders) forEachEntry(folder + "/" + below, visit);
}

void list(Measurement& m, const Arguments& a) {
  std::uint64_t entries = 0;
  char path[4096];
  const std::size_t length = a.at(0).copy(path, sizeof path - 300);
  path[length] = '/';
  m.start();
  forEachEntry(a[0], [&](const std::string&, int, const dirent64& entry, auto&) {
    std::strcpy(path + length + 1, entry.d_name);
    struct stat status {};
    entries += stat(path, &status) == 0 ? 1U : 0U;
  });
  m.stop();
  m.use(entries);
}

void removeTree(Measurement& m, const Arguments& a) {
  makeTree(a.at(0), std::stoi(a.at(1)));
  std::vector<std::string> folders{a[0]};
  m.start();
  forEachEntry(a[0],
               [&](const std::string& folder, int handle, const dirent64& entry, auto& below) {
                 if (entry.d_type == DT_DIR) {
                   below.emplace_back(entry.d_name);
                   folders.push_back(folder + "/" + entry.d_name);
                 } else {
                   require(unlinkat(handle, entry.d_name, 0));
                 }
               });
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    require(rmdir(folder->c_str()));
  }
  m.stop();
  m.use(std::stoull(a[1]));
}

// The system calls of `quen-io index`: entry points query kind, link, size and time of each entry
// separately, by its full path, and read each file to its end.
void walk(Measurement& m, const Arguments& a) {
  std::uint64_t valid = 0;
  m.start();
  forEachEntry(a.at(0), [&](const std::string& folder, int, const dirent64& entry, auto& below) {
    const std::string path = folder + "/" + entry.d_name;
    struct stat status {};
    for (int i = 0; i < 3; ++i) require(stat(path.c_str(), &status));
    require(lstat(path.c_str(), &status));
    if (S_ISDIR(status.st_mode)) below.emplace_back(entry.d_name);
    if (!S_ISREG(status.st_mode)) return;
    const int file = openToRead(path);
    const auto size = static_cast<std::size_t>(status.st_size);
    const Memory bytes = memoryOf(size + 1);
    const std::size_t length = requireSize(read(file, bytes.get(), size + 1));
    requireSize(read(file, bytes.get() + length, 1));
    valid += isValid({bytes.get(), length});
    close(file);
  });
  m.stop();
  m.use(valid);
}

void writeTexts(Measurement& m, int times, const Arguments& a) {
  constexpr std::size_t kBuffer = 8192;
  const std::string text(std::stoul(a.at(1)), 'x');
  m.start();
  onThreads(std::stoi(a.at(2)), [&](int number) {
    const int file = openToWrite(a[0] + "." + std::to_string(number));
    std::vector<char> buffer(kBuffer + text.size());
    std::size_t used = 0;
    for (int i = 0; i < times; ++i) {
      used += text.copy(buffer.data() + used, text.size());
      if (used < kBuffer && i + 1 < times) continue;
      requireSize(write(file, buffer.data(), used));
      used = 0;
    }
    close(file);
  });
  m.stop();
  m.use(text.size() * std::stoull(a[2]) * static_cast<unsigned>(times));
}

// A result has to be copied at least once.
void copyLines(Measurement& m, const Arguments& a) {
  const std::vector<std::string>& lines = linesOf(a.at(0));
  std::vector<std::string> results(lines.size());
  m.start();
  for (std::size_t i = 0; i < lines.size(); ++i) results[i] = lines[i].c_str();
  m.stop();
  for (const std::string& result : results) m.use(result.size());
}

}  // namespace

int main() {
  const std::vector<const char*> pathWorkloads{
      "normalize", "normalize_object", "parent", "resolve", "is_normalized", "name", "extension"};
  std::map<std::string, Workload> workloads;
  for (const char* each : pathWorkloads) workloads[each] = repeated(copyLines);
  workloads["list"] = repeated(list);
  workloads["remove_tree"] = repeated(removeTree);
  workloads["walk"] = repeated(walk);
  workloads["write"] = writeTexts;

  workloads["utf8"] = [](Measurement& m, int iterations, const Arguments& a) {
    const std::string& text = textOf(a.at(0));
    m.start();
    for (int i = 0; i < iterations; ++i)
      m.use(std::memchr(text.data(), 0xFF, text.size()) == nullptr);
    m.stop();
  };
  workloads["read_text"] = repeated([](Measurement& m, const Arguments& a) {
    m.start();
    std::size_t size = 0;
    const Memory bytes = readWhole(a.at(0), size);
    m.use(isValid({bytes.get(), size}) - 1);
    const Memory copy = memoryOf(size);  // the String
    std::memcpy(copy.get(), bytes.get(), size);
    m.use(size + (size > 0 && copy[size - 1] != bytes[size - 1] ? 1U : 0U));
    m.stop();
  });
  workloads["prefix"] = repeated([](Measurement& m, const Arguments& a) {
    const std::size_t limit = std::stoul(a.at(1));
    std::size_t size = 0;
    m.start();
    const Memory bytes = readAndClose(openToRead(a.at(0)), limit, size);
    m.use(size);
    m.stop();
  });
  workloads["range"] = repeated([](Measurement& m, const Arguments& a) {
    const std::size_t count = std::stoul(a.at(2));
    std::size_t size = 0;
    m.start();
    const int file = openToRead(a.at(0));
    requireSize(lseek(file, std::stoll(a.at(1)), SEEK_SET));
    const Memory bytes = readAndClose(file, count, size);
    m.use(size);
    m.stop();
  });
  workloads["publish"] = repeated([](Measurement& m, const Arguments& a) {
    const std::string text(std::stoul(a.at(1)), 'x');
    const std::string temporary = a.at(0) + ".tmp-1";
    m.start();
    const int file = openToWrite(temporary);
    m.use(requireSize(write(file, text.data(), text.size())));
    close(file);
    require(rename(temporary.c_str(), a[0].c_str()));
    m.stop();
  });
  return serve(workloads);
}
