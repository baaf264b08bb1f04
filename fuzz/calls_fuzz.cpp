// Sequences of calls, decoded from the input, against a model of what is on disk.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "fuzz/fuzz.h"
#include "quen/io/entry_points.h"

namespace fs = std::filesystem;
using namespace quen::fuzz;
using namespace quen::small;

namespace {

constexpr std::size_t kBuffer = 8 * 1024;

// In memory where there is such a file system, and made anew for every input.
const fs::path& scratch() {
  static const fs::path folder = [] {
    std::string name =
        (fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/quen-io-fuzz-XXXXXX");
    require(mkdtemp(name.data()) != nullptr, "mkdtemp");
    return fs::path(name);
  }();
  return folder;
}

// A file as the system has it: whoever has it open keeps it when its name goes.
using File = std::shared_ptr<std::string>;

struct Writer {
  File file;
  bool appends;
  std::size_t position = 0;
  std::string waiting = "";

  void flush() {
    if (waiting.empty()) return;
    if (appends) position = file->size();
    if (file->size() < position + waiting.size()) file->resize(position + waiting.size(), '\0');
    file->replace(position, waiting.size(), waiting);
    position += waiting.size();
    waiting.clear();
  }

  void write(const std::string& text) {
    if (text.size() > kBuffer - waiting.size()) flush();
    waiting += text;
    if (text.size() > kBuffer) flush();
  }
};

class Program {
 public:
  explicit Program(Input& input) : input_(input) {}

  ~Program() {
    for (auto& [handle, writer] : writers_) quen_io_FileWriter__closeHandle(handle);
    raised();
  }

  void step() {
    const Scope scope;
    switch (input_.byte() % 16) {
      case 0: return truncate();
      case 1: return append();
      case 2: return replace();
      case 3: return writeBytes();
      case 4: return appendBytes();
      case 5: return open();
      case 6:
      case 7: return write();
      case 8: return flush();
      case 9: return close();
      case 10: return remove();
      case 11: return rename();
      case 12: return publish();
      case 13: return touch();
      case 14: return makeFolder();
      default: return look();
    }
  }

  // Every file, and nothing else.
  void compare() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::directory_iterator(scratch())) {
      if (entry.is_directory()) {
        found[entry.path().filename()] = "a folder";
        continue;
      }
      std::ifstream stream(entry.path(), std::ios::binary);
      found[entry.path().filename()].assign(std::istreambuf_iterator<char>(stream), {});
    }
    require(found.size() == files_.size(), "number of files", std::to_string(found.size()),
            std::to_string(files_.size()));
    for (const auto& [name, file] : files_) {
      requireSame(name, found[name], file ? *file : "a folder");
    }
  }

 private:
  std::string name() { return std::string(1, static_cast<char>('a' + input_.byte() % 4)); }
  std::string pathOf(const std::string& name) const { return scratch() / name; }

  // Short, or larger than a buffer.
  std::string text() {
    const std::uint8_t kind = input_.byte();
    return std::string(kind < 200 ? kind % 50 : kind * 50, static_cast<char>('A' + kind % 26));
  }

  bool isFolder(const std::string& name) const {
    const auto entry = files_.find(name);
    return entry != files_.end() && !entry->second;
  }

  // Made when it is missing.
  File& file(const std::string& name) {
    File& file = files_[name];
    if (!file) file = std::make_shared<std::string>();
    return file;
  }

  // What opening the name for writing raises.
  bool opens(const std::string& name) {
    const bool folder = isFolder(name);
    requireSame("open", raised(), folder ? "IOException: Cannot open file for writing" : "");
    return !folder;
  }

  void truncate() {
    const std::string target = name();
    quen_io_FileWriter__truncatePath(pathOf(target).c_str());
    if (opens(target)) file(target)->clear();
  }

  void append() {
    const std::string target = name();
    const std::string added = text();
    quen_io_FileWriter__appendPath(pathOf(target).c_str(), added.c_str());
    if (opens(target)) *file(target) += added;
  }

  void replace() {
    const std::string target = name();
    const std::string content = text();
    quen_io_FileWriter__writePath(pathOf(target).c_str(), content.c_str());
    if (opens(target)) *file(target) = content;
  }

  void writeBytes() {
    const std::string target = name();
    const std::string bytes = text();
    void* array = newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    quen_io_Files__writeBytesWithPrefixPath(pathOf(target).c_str(), "P", array);
    if (opens(target)) *file(target) = "P" + bytes;
  }

  void appendBytes() {
    const std::string target = name();
    const std::string bytes = text();
    void* array = newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    quen_io_FileOutputStream__appendBytesPath(pathOf(target).c_str(), array);
    if (opens(target)) *file(target) += bytes;
  }

  void open() {
    const std::string target = name();
    const bool appends = input_.byte() % 2 == 1;
    const std::int64_t handle =
        quen_io_FileWriter__openPath(pathOf(target).c_str(), appends ? 1 : 0);
    require((handle == 0) == isFolder(target), "handle");
    if (!opens(target)) return;
    require(writers_.empty() || handle > writers_.rbegin()->first, "handles grow");
    if (!appends) file(target)->clear();
    writers_.emplace(handle, Writer{file(target), appends});
  }

  // One of the handles there are, or one that nobody has.
  std::int64_t handle() {
    const std::size_t number = input_.byte() % (writers_.size() + 1);
    return number == writers_.size()
               ? 0
               : std::next(writers_.begin(), static_cast<std::ptrdiff_t>(number))->first;
  }

  void write() {
    const std::int64_t target = handle();
    const std::string added = text();
    quen_io_FileWriter__writeHandle(target, added.c_str());
    requireSame("write", raised(), target == 0 ? "IOException: File writer is closed" : "");
    if (target != 0) writers_.at(target).write(added);
  }

  void flush() {
    const std::int64_t target = handle();
    quen_io_FileWriter__flushHandle(target);
    requireSame("flush", raised(), target == 0 ? "IOException: File writer is closed" : "");
    if (target != 0) writers_.at(target).flush();
  }

  void close() {
    const std::int64_t target = handle();
    quen_io_FileWriter__closeHandle(target);
    requireSame("close", raised(), "");
    if (target == 0) return;
    writers_.at(target).flush();
    writers_.erase(target);
  }

  void remove() {
    const std::string target = name();
    quen_io_Path_remove(newPath(pathOf(target)));
    requireSame("remove", raised(),
                files_.erase(target) == 0 ? "IOException: Cannot remove path" : "");
  }

  // A folder takes the place of an empty folder only, and a file that of a file.
  void rename() {
    const std::string from = name();
    const std::string to = name();
    quen_io_Path_rename(newPath(pathOf(from)), to.c_str());
    const bool works = files_.contains(from) &&
                       (!files_.contains(to) || from == to || isFolder(from) == isFolder(to));
    requireSame("rename", raised(), works ? "" : "IOException: Cannot rename path");
    if (!works || from == to) return;
    files_[to] = files_[from];
    files_.erase(from);
  }

  void publish() {
    const std::string target = name();
    const std::string content = text();
    quen_data_internal_DocumentIndexStore__writeAtomic(pathOf(target).c_str(), content.c_str());
    requireSame("publish", raised(),
                isFolder(target) ? "IOException: Cannot atomically publish document index" : "");
    if (!isFolder(target)) files_[target] = std::make_shared<std::string>(content);
  }

  void touch() {
    const std::string target = name();
    quen_io_FilePath_touch(newPath(pathOf(target)));
    requireSame("touch", raised(), isFolder(target) ? "IOException: Path is a directory" : "");
    if (!isFolder(target)) file(target);
  }

  void makeFolder() {
    const std::string target = name();
    quen_io_FolderPath__mkdirNative(pathOf(target).c_str());
    const bool file = files_.contains(target) && !isFolder(target);
    requireSame("mkdir", raised(), file ? "IOException: A non-directory path already exists" : "");
    if (!file) files_[target] = nullptr;
  }

  void look() {
    const std::string target = name();
    const std::string path = pathOf(target);
    const bool isFile = files_.contains(target) && !isFolder(target);
    void* object = newPath(path);
    require(quen_io_Path__exists(object) == files_.contains(target), "exists");
    require(quen_io_Path__isRegular(object) == isFile, "isRegular");
    require(quen_io_Path__isDirectory(object) == isFolder(target), "isDirectory");
    require(quen_io_Path__size(object) == (isFile ? std::ssize(*files_.at(target)) : 0), "size");
    require(listElements(quen_io_FolderPath__listNamesNative(scratch().c_str())).size() ==
                files_.size(),
            "listNames");
    requireSame("look", raised(), "");
  }

  Input& input_;
  std::map<std::string, File> files_;  // null for a folder
  std::map<std::int64_t, Writer> writers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 2000) return 0;
  for (const auto& entry : fs::directory_iterator(scratch())) fs::remove_all(entry);
  Input input(data, size);
  Program program(input);
  while (!input.isEmpty()) {
    program.step();
    program.compare();
  }
  return 0;
}
