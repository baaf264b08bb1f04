// Makes the calls of one case. Prints the peak of its own resident memory in KiB (VmHWM of
// proc(5)), how much was read, written or found, and the message that was raised, one on each line.
//
//   probe CASE PATH SIZE WHOLE    the input is the file or folder PATH, or SIZE bytes or handles
//   probe --names                 prints the cases
//   probe --peak-of COMMAND...    runs a program and prints the peak of its memory (getrusage(2))
//
// measure.py runs it twice, with an input and with an empty one, and subtracts. What the caller
// holds is not the module's memory: it is of WHOLE bytes in both runs, of which the last SIZE are
// passed.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

using namespace quen::small;

namespace {

struct Input {
  std::string path;
  std::size_t size;
  std::size_t whole;

  // A text that the caller holds whole.
  const char* text() const {
    static const std::string held(whole, 't');
    return held.c_str() + (whole - size);
  }

  // A Byte[] that the caller holds, besides an empty one.
  void* bytes() const {
    void* held = newByteArray(std::vector<std::uint8_t>(whole, 'b'));
    return size == whole ? held : newByteArray(std::size_t{0});
  }

  std::int64_t limit() const { return static_cast<std::int64_t>(whole); }
};

constexpr std::int64_t kGibibyte = std::int64_t{1} << 30;

std::size_t sizeOf(const Input& input) { return std::filesystem::file_size(input.path); }

// Readers: how many bytes they give.

std::size_t readText(const Input& input) {
  return stringLength(quen_io_FileReader__readAllTextPath(input.path.c_str()));
}

std::size_t readSecondHalf(const Input& input) {
  const char* path = input.path.c_str();
  const std::int64_t half = quen_io_FileInputStream__sizePath(path) / 2;
  return stringLength(quen_io_FileInputStream__readTextFromOffsetPath(path, half));
}

std::size_t readPrefix(const Input& input) {
  return stringLength(quen_io_FileReader__readPrefixPath(input.path.c_str(), input.limit()));
}

std::size_t readPrefixUpToGibibyte(const Input& input) {
  return stringLength(quen_io_FileReader__readPrefixPath(input.path.c_str(), kGibibyte));
}

std::size_t readBytes(const Input& input, std::int64_t count) {
  void* destination = newByteArray(input.whole);
  return static_cast<std::size_t>(
      quen_io_FileInputStream__readBytesPath(input.path.c_str(), 0, destination, count));
}

std::size_t readAllBytes(const Input& input) { return readBytes(input, input.limit()); }
std::size_t readBytesUpToGibibyte(const Input& input) { return readBytes(input, kGibibyte); }

std::size_t readToml(const Input& input) {
  return stringLength(quen_io_toml_TOML__readStrictPath(input.path.c_str()));
}

// Writers: the size of the file afterwards.

std::size_t writeBytes(const Input& input) {
  quen_io_Files__writeBytesPath(input.path.c_str(), input.bytes());
  return sizeOf(input);
}

std::size_t writeBytesWithPrefix(const Input& input) {
  const std::string prefix = "prefix";
  quen_io_Files__writeBytesWithPrefixPath(input.path.c_str(), prefix.c_str(), input.bytes());
  return sizeOf(input) - prefix.size();
}

std::size_t appendBytes(const Input& input) {
  quen_io_FileOutputStream__truncatePath(input.path.c_str());
  quen_io_FileOutputStream__appendBytesPath(input.path.c_str(), input.bytes());
  return sizeOf(input);
}

std::size_t writeTexts(const Input& input) {
  const char* path = input.path.c_str();
  quen_io_FileWriter__writePath(path, input.text());
  quen_io_FileWriter__truncatePath(path);
  quen_io_FileWriter__appendPath(path, input.text());
  quen_io_FileOutputStream__truncatePath(path);
  quen_io_FileOutputStream__appendTextPath(path, input.text());
  return sizeOf(input);
}

std::size_t writeThroughHandle(const Input& input) {
  const std::int64_t handle = quen_io_FileWriter__openPath(input.path.c_str(), 0);
  quen_io_FileWriter__writeHandle(handle, input.text());
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  return sizeOf(input);
}

std::size_t publish(const Input& input) {
  quen_data_internal_DocumentIndexStore__writeAtomic(input.path.c_str(), input.text());
  return sizeOf(input);
}

// Handles: how many are open. They stay so.

std::vector<std::int64_t> newHandles(const Input& input) {
  std::vector<std::int64_t> handles;
  handles.reserve(input.whole);
  while (handles.size() < input.size) {
    handles.push_back(quen_io_FileWriter__openPath(input.path.c_str(), 1));
    if (handles.back() == 0) break;
  }
  return handles;
}

std::size_t openHandles(const Input& input) { return newHandles(input).size(); }

std::size_t fillHandles(const Input& input) {
  const std::string text(8'000, 't');
  const std::vector<std::int64_t> handles = newHandles(input);
  for (const std::int64_t handle : handles) quen_io_FileWriter__writeHandle(handle, text.c_str());
  return handles.size();
}

// Folders: how many entries were listed or removed.

std::size_t list(const Input& input) {
  const std::size_t before = liveObjects();
  quen_io_FolderPath__listNamesNative(input.path.c_str());
  return liveObjects() - before - 1;  // the list itself
}

std::size_t remove(const Input& input) {
  quen_io_FolderPath__removeAllNative(input.path.c_str());
  return std::filesystem::exists(input.path) ? 0 : input.size;
}

// Path operations: all of them on one long path. Each call's objects are released before the next.

using Method = void* (*)(void*);
using Member = void* (*)(const char*);

void callMethods(const std::string& path) {
  for (const Method call : {quen_io_Path_normalize, quen_io_Path_toAbsolute, quen_io_Path_parent,
                            quen_io_Path_name, __quen_propget_quen_io_Path_name,
                            quen_io_Path_extension, __quen_propget_quen_io_Path_extension}) {
    const Scope scope;
    call(newPath(path));
  }
  for (const auto call : {quen_io_Path__isAbsolute, __quen_propget_quen_io_Path_isAbsolute,
                          quen_io_Path__isNormalized, __quen_propget_quen_io_Path_isNormalized}) {
    const Scope scope;
    call(newPath(path));
  }
  for (const auto call : {quen_io_Path_relativize, quen_io_Path_resolve, quen_io_Path_resolve__dup2,
                          quen_io_Path_resolve__dup3}) {
    const Scope scope;
    call(newPath(path), newFolderPath(path));
  }
}

void callMembers(const std::string& path) {
  const char* text = path.c_str();
  for (const Member call :
       {quen_io_Path__normalizePath, quen_io_Path__absolutePath, quen_io_Path__parentPath,
        quen_io_Path__pathName, quen_io_Path__pathExtension, quen_io_Path__pathKindPath}) {
    const Scope scope;
    call(text);
  }
  for (const auto call : {quen_io_Path__relativizePath, quen_io_Path__resolvePath}) {
    const Scope scope;
    call(text, text);
  }
  const Scope scope;
  __quen_propget_quen_io_Path_cwd();
  quen_io_Path__cwdPath();
  quen_io_Path__rootStringsNative();
}

// How many bytes the path has.
std::size_t operateOnPath(const Input& input) {
  callMethods(input.path);
  callMembers(input.path);
  return input.path.size();
}

std::size_t queryPath(const Input& input) {
  const char* text = input.path.c_str();
  quen_io_FileInputStream__existsPath(text);
  quen_io_FileInputStream__isRegularPath(text);
  quen_io_FileInputStream__sizePath(text);
  for (const auto query : {quen_io_Path__exists, __quen_propget_quen_io_Path_exists,
                           quen_io_Path__isRegular, __quen_propget_quen_io_Path_isRegular,
                           quen_io_Path__isDirectory, __quen_propget_quen_io_Path_isDirectory,
                           quen_io_Path__isSymlink, __quen_propget_quen_io_Path_isSymlink}) {
    const Scope scope;
    query(newPath(input.path));
  }
  for (const auto query : {quen_io_Path__size, __quen_propget_quen_io_Path_size,
                           quen_io_Path__lastModified, __quen_propget_quen_io_Path_lastModified}) {
    const Scope scope;
    query(newPath(input.path));
  }
  return input.path.size();
}

std::size_t changeEntries(const Input& input) {
  const char* text = input.path.c_str();
  quen_io_FolderPath__mkdirsNative(text);
  Quen_isUnsafeRecursiveDeletePath(text);
  quen_io_FolderPath__removeAllNative(text);
  quen_io_FolderPath__mkdirNative(text);
  quen_io_Path_remove(newPath(input.path));
  quen_io_Path_touch(newPath(input.path));
  quen_io_FilePath_touch(newPath(input.path));
  quen_io_Path_rename(newPath(input.path), "renamed");
  return input.path.size();
}

using Case = std::size_t (*)(const Input&);

const std::map<std::string, Case> kCases{
    {"text", readText},
    {"second half of a text", readSecondHalf},
    {"prefix", readPrefix},
    {"prefix up to a gibibyte", readPrefixUpToGibibyte},
    {"bytes", readAllBytes},
    {"bytes up to a gibibyte", readBytesUpToGibibyte},
    {"toml", readToml},
    {"write bytes", writeBytes},
    {"write bytes with prefix", writeBytesWithPrefix},
    {"append bytes", appendBytes},
    {"write texts", writeTexts},
    {"write through a handle", writeThroughHandle},
    {"publish", publish},
    {"open handles", openHandles},
    {"fill handles", fillHandles},
    {"list", list},
    {"remove", remove},
    {"operate on a path", operateOnPath},
    {"query a path", queryPath},
    {"change entries", changeEntries},
};

// In KiB; 0 if the system does not tell.
long long peak() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoll(line.substr(6));
  }
  return 0;
}

int run(const std::string& name, const Input& input) {
  const Scope scope;
  const std::size_t done = kCases.at(name)(input);
  const auto raised = takeException();
  std::cout << peak() << '\n' << done << '\n' << (raised ? raised->message : "") << '\n';
  return 0;
}

// This process is smaller than the program that it starts, whose peak is counted from the fork on.
int printPeakOf(char** command) {
  const pid_t child = fork();
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    execv(command[0], command);
    _exit(127);
  }
  int status = 0;
  rusage used{};
  if (child == -1 || wait4(child, &status, 0, &used) != child || status != 0) return 1;
  std::cout << used.ru_maxrss << '\n';
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  try {
    if (words.size() == 1 && words[0] == "--names") {
      for (const auto& [name, call] : kCases) std::cout << name << '\n';
      return 0;
    }
    if (words.size() > 1 && words[0] == "--peak-of") return printPeakOf(arguments + 2);
    if (words.size() != 4) return 2;
    return run(words[0], {words[1], std::stoul(words[2]), std::stoul(words[3])});
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
  }
}
