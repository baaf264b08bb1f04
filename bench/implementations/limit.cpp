// The limit: the system calls and the passes over memory that nobody can leave out, and nothing
// else. With the argument "at_boundary", also what the interface of the module forces on everybody
// who implements it: the path and the text that are made of a C string, the String or Byte[] that a
// result is copied to, the record of an entry's kind, and the look-up of a handle.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/implementations/implementation.h"
#include "contents/utf8.h"
#include "conventions.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "system/huge_pages.h"

namespace fs = std::filesystem;
namespace small = quen::small;
using namespace quen::bench;

namespace {

struct Free {
  void operator()(char* bytes) const { std::free(bytes); }
};
using Memory = std::unique_ptr<char[], Free>;

// Not zeroed, with spare capacity that keeps copies clear of 4 KiB aliasing, and with huge pages
// when it is large. Aligned memory would leave gaps in the heap, which grows then: new pages cost
// more.
Memory memoryOf(std::size_t size) {
  constexpr std::size_t kSpare = 64;
  Memory memory(static_cast<char*>(std::malloc(size + kSpare)));
  if (memory == nullptr) throw std::bad_alloc();
  quen::io::adviseHugePages({memory.get(), size});
  return memory;
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

struct Text {
  Memory bytes;
  std::size_t size = 0;
  std::size_t wellFormed = 0;

  std::string_view view() const { return {bytes.get(), size}; }
  bool isValid() const {
    std::uint64_t errorOffset = 0;
    return quen::io::validateUtf8(view(), errorOffset, wellFormed);
  }
};

// The whole file, validated chunk by chunk while it is in the cache. The end of a small file is
// read, which takes less time than asking for its size.
Text readWhole(const std::string& path) {
  constexpr std::size_t kSmall = 8 * 1024;
  constexpr std::size_t kChunk = 64 * 1024;
  const int file = openToRead(path);
  Text text{memoryOf(kSmall)};
  std::size_t whole = kSmall;
  while (text.size < whole) {
    char* room = text.bytes.get() + text.size;
    const std::size_t count = requireSize(read(file, room, std::min(kChunk, whole - text.size)));
    if (count == 0) break;
    text.size += count;
    text.wellFormed = quen::io::passWellFormed(text.view(), text.wellFormed);
    if (whole == kSmall && text.size == kSmall) {
      struct stat status {};
      require(fstat(file, &status));
      whole = static_cast<std::size_t>(status.st_size);
      Memory larger = memoryOf(whole);
      std::memcpy(larger.get(), text.bytes.get(), kSmall);
      text.bytes = std::move(larger);
    }
  }
  close(file);
  return text;
}

template <bool kAtBoundary>
void readText(Measurement& m, const Arguments& a) {
  const small::Scope scope;
  m.start();
  if constexpr (kAtBoundary) Quen_runtimeFsPath(a.at(0).c_str());
  const Text text = readWhole(a.at(0));
  m.use(text.isValid() ? text.size : 0);
  if constexpr (kAtBoundary) small::newString(text.view());
  m.stop();
}

template <bool kAtBoundary>
void readPrefix(Measurement& m, const Arguments& a) {
  const std::size_t limit = std::stoul(a.at(1));
  const small::Scope scope;
  m.start();
  if constexpr (kAtBoundary) Quen_runtimeFsPath(a[0].c_str());
  const int file = openToRead(a[0]);
  Text text{memoryOf(limit)};
  text.size = requireSize(read(file, text.bytes.get(), limit));
  close(file);
  m.use(text.isValid() ? text.size : 0);
  if constexpr (kAtBoundary) small::newString(text.view());
  m.stop();
}

template <bool kAtBoundary>
void readRange(Measurement& m, const Arguments& a) {
  const std::int64_t position = std::stoll(a.at(1));
  const std::size_t count = std::stoul(a.at(2));
  const small::Scope scope;
  void* array = small::newByteArray(count);
  std::string error;
  m.start();
  if constexpr (kAtBoundary) Quen_runtimeFsPath(a[0].c_str());
  const int file = openToRead(a[0]);
  const Memory bytes = memoryOf(count);
  const std::size_t size = requireSize(pread(file, bytes.get(), count, position));
  close(file);
  if constexpr (kAtBoundary) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(bytes.get());
    Quen_writeByteArrayData(array, first, size, error);
  }
  m.stop();
  m.use(size);
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

// The kind of an entry takes a stat, which follows links.
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

// The runtime asks for the kind, by a stat of its own.
void listAtBoundary(Measurement& m, const Arguments& a) {
  const small::Scope scope;
  m.start();
  void* names = Quen_allocObject("ArrayList");
  fs::path path = Quen_runtimeFsPath(a.at(0).c_str()) / "";
  forEachEntry(a[0], [&](const std::string&, int, const dirent64& entry, auto&) {
    path.replace_filename(entry.d_name);
    Quen_cachePathEntryKind(path, Quen_pathEntryKind(path));
    const std::string name = Quen_visiblePathString(*std::prev(path.end()), false);
    quen_collections_ArrayList_add(names, Quen_allocString(name));
  });
  m.stop();
  m.use(small::listElements(names).size());
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

// One pass over the text.
void searchByte(Measurement& m, int iterations, const Arguments& a) {
  const std::string& text = textOf(a.at(0));
  m.start();
  for (int i = 0; i < iterations; ++i)
    m.use(std::memchr(text.data(), 0xFF, text.size()) == nullptr);
  m.stop();
}

void publish(Measurement& m, const Arguments& a) {
  const std::string text(std::stoul(a.at(1)), 'x');
  const std::string temporary = a.at(0) + ".tmp-1";
  m.start();
  const int file = openToWrite(temporary);
  m.use(requireSize(write(file, text.data(), text.size())));
  close(file);
  require(rename(temporary.c_str(), a[0].c_str()));
  m.stop();
}

// A file with a buffer. A text that is larger than the buffer is written as it is.
class Writer {
 public:
  explicit Writer(const std::string& path) : file_(openToWrite(path)) {}
  ~Writer() {
    flush();
    close(file_);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void write(std::string_view text) {
    if (text.size() > buffer_.size() - used_) flush();
    if (text.size() > buffer_.size()) {
      requireSize(::write(file_, text.data(), text.size()));
    } else {
      used_ += text.copy(buffer_.data() + used_, text.size());
    }
  }

  std::mutex mutex;

 private:
  void flush() {
    if (used_ > 0) used_ -= static_cast<std::size_t>(::write(file_, buffer_.data(), used_));
  }

  int file_;
  std::size_t used_ = 0;
  std::vector<char> buffer_ = std::vector<char>(8192);
};

// The arguments: a common prefix of the files, the size of a text, how many threads, and how many
// more writers are open.
void writeTexts(Measurement& m, int times, const Arguments& a) {
  const std::string text(std::stoul(a.at(1)), 'x');
  m.start();
  onThreads(std::stoi(a.at(2)), [&](int number) {
    Writer writer(a.at(0) + "." + std::to_string(number));
    for (int i = 0; i < times; ++i) writer.write(text);
  });
  m.stop();
  m.use(text.size() * std::stoull(a[2]) * static_cast<unsigned>(times));
}

// A writer is found by its handle, and any thread may use any of them: one lock for the table and
// one for each writer. The length of a text is not known.
void writeTextsAtBoundary(Measurement& m, int times, const Arguments& a) {
  static std::mutex mutex;
  static std::unordered_map<std::int64_t, std::unique_ptr<Writer>> writers;
  static std::int64_t lastHandle = 0;
  const auto add = [](std::unique_ptr<Writer> writer) {
    const std::lock_guard lock(mutex);
    writers.emplace(++lastHandle, std::move(writer));
    return lastHandle;
  };
  const auto find = [](std::int64_t handle) -> Writer& {
    const std::lock_guard lock(mutex);
    return *writers.find(handle)->second;
  };
  const auto remove = [](std::int64_t handle) {
    const std::lock_guard lock(mutex);
    writers.erase(handle);
  };

  const SecondThread second;
  const std::string text(std::stoul(a.at(1)), 'x');
  std::vector<std::int64_t> others;
  for (int i = 0; a.size() > 3 && i < std::stoi(a[3]); ++i) others.push_back(add(nullptr));
  m.start();
  onThreads(std::stoi(a.at(2)), [&](int number) {
    const std::int64_t handle =
        add(std::make_unique<Writer>(a.at(0) + "." + std::to_string(number)));
    for (int i = 0; i < times; ++i) {
      Writer& writer = find(handle);
      const std::lock_guard lock(writer.mutex);
      writer.write(text.c_str());
    }
    remove(handle);
  });
  m.stop();
  std::for_each(others.begin(), others.end(), remove);
  m.use(text.size() * std::stoull(a[2]) * static_cast<unsigned>(times));
}

// One call per line of a file. A text that results has to be copied at least once.
template <class Call>
Workload forEachLine(Call call) {
  return repeated([call](Measurement& m, const Arguments& a) {
    const std::vector<std::string>& lines = linesOf(a.at(0));
    std::vector<decltype(call(lines[0].c_str()))> results(lines.size());
    const small::Scope scope;
    m.start();
    for (std::size_t i = 0; i < lines.size(); ++i) results[i] = call(lines[i].c_str());
    m.stop();
    m.use(results.size());
  });
}

// One call per line of a file, with a path object.
template <class Call>
Workload forEachObject(Call call) {
  return repeated([call](Measurement& m, const Arguments& a) {
    const small::Scope scope;
    std::vector<void*> objects;
    for (const std::string& line : linesOf(a.at(0))) objects.push_back(small::newPath(line));
    std::uint64_t results = 0;
    m.start();
    for (void* object : objects) results += call(object) ? 1U : 0U;
    m.stop();
    m.use(results);
  });
}

std::string_view beforeLast(std::string_view path, char separator) {
  return path.substr(0, path.rfind(separator));
}

std::string_view afterLast(std::string_view path, char separator) {
  return path.substr(path.rfind(separator) + 1);
}

// Without the dot. Empty if the last name has none, or begins with its only one.
std::string_view extensionOf(std::string_view path) {
  const std::string_view name = afterLast(path, '/');
  const std::size_t dot = name.rfind('.');
  return dot == name.npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::map<std::string, Workload> limit() {
  const auto copyAll = [](const char* path) { return std::string(path); };
  return {
      {"normalize", forEachLine(copyAll)},
      {"normalize_object", forEachLine(copyAll)},
      {"resolve", forEachLine(copyAll)},
      {"parent", forEachLine([](const char* path) { return std::string(beforeLast(path, '/')); })},
      {"name", forEachLine([](const char* path) { return std::string(afterLast(path, '/')); })},
      {"extension", forEachLine([](const char* path) { return std::string(extensionOf(path)); })},
      {"is_normalized", forEachLine([](const char* path) { return std::strlen(path); })},
      {"list", repeated(list)},
      {"remove_tree", repeated(removeTree)},
      {"walk", repeated(walk)},
      {"write", writeTexts},
      {"write_among", writeTexts},
      {"read_text", repeated(readText<false>)},
      {"prefix", repeated(readPrefix<false>)},
      {"range", repeated(readRange<false>)},
      {"publish", repeated(publish)},
      {"utf8", searchByte},
  };
}

// Of the paths: the parsing of each argument into a fs::path, what is asked about it, and the
// result, made of a fs::path. The workloads that are missing have nothing of the kind to do.
std::map<std::string, Workload> limitAtBoundary() {
  return {
      {"normalize", forEachLine([](const char* text) {
         const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
         return Quen_allocPathString(Quen_runtimeFsPath(text), windowsRoot);
       })},
      {"normalize_object", forEachObject([](void* object) {
         const char* text = Quen_filePathFromObject(object);
         const bool folder = quen::io::isFolder(object);
         const bool traversal = quen::io::carriesParentTraversal(object, text);
         const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
         return Quen_allocTypedPathObjectFromPath(Quen_runtimeFsPath(text), !folder, windowsRoot,
                                                  traversal);
       })},
      {"resolve", forEachLine([](const char* text) {
         const char* operand = "../sibling/name.txt";
         const bool windowsRoot =
             Quen_pathHasExplicitWindowsRoot(text) || Quen_pathHasExplicitWindowsRoot(operand);
         const fs::path path = Quen_runtimeFsPath(text);
         Quen_runtimeFsPath(operand);
         return Quen_allocPathString(path, windowsRoot);
       })},
      {"parent", forEachLine([](const char* text) {
         const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
         const fs::path path = Quen_runtimeFsPath(text);
         return Quen_allocPathString(beforeLast(path.native(), '/'), windowsRoot);
       })},
      {"name", forEachLine([](const char* text) {
         const fs::path path = Quen_runtimeFsPath(text);
         return Quen_allocPathString(*std::prev(path.end()), true);
       })},
      {"extension", forEachLine([](const char* text) {
         const fs::path path = Quen_runtimeFsPath(text);
         return Quen_allocString(Quen_visiblePathString(extensionOf(path.native()), true));
       })},
      {"is_normalized", forEachObject([](void* object) {
         return Quen_runtimeFsPath(Quen_filePathFromObject(object)).empty();
       })},
      {"list", repeated(listAtBoundary)},
      {"write", writeTextsAtBoundary},
      {"write_among", writeTextsAtBoundary},
      {"read_text", repeated(readText<true>)},
      {"prefix", repeated(readPrefix<true>)},
      {"range", repeated(readRange<true>)},
  };
}

}  // namespace

int main(int count, char** arguments) {
  const bool atBoundary = count > 1 && std::string_view(arguments[1]) == "at_boundary";
  return serve(atBoundary ? limitAtBoundary() : limit());
}
