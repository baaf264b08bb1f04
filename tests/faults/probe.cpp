// Calls an entry point, or a short sequence of them, so that run.py can inject failures into its
// system calls. Two calls of getpgid(2), which the program does not use otherwise, mark the
// beginning and the end in the trace.
//
//   probe NAME FOLDER    prints the raised exception, the number of raises and the result as JSON
//   probe --names        prints the names
//
// QUEN_IO_SHORT=N causes short reads and short writes of at most N bytes.

#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using namespace quen::small;

namespace {

// Returns the result as text.
using Call = std::function<std::string(const std::string& folder)>;

std::string wordFor(bool value) { return value ? "true" : "false"; }
std::string wordFor(std::int64_t value) { return std::to_string(value); }

template <class Result>
Call query(Result (*entryPoint)(void*), const std::string& name) {
  return [=](const std::string& folder) { return wordFor(entryPoint(newPath(folder + name))); };
}

template <class Result>
Call textQuery(Result (*entryPoint)(const char*), const std::string& name) {
  return [=](const std::string& folder) { return wordFor(entryPoint((folder + name).c_str())); };
}

Call action(void (*entryPoint)(void*), const std::string& name) {
  return [=](const std::string& folder) {
    entryPoint(newPath(folder + name));
    return "";
  };
}

Call textAction(void (*entryPoint)(const char*), const std::string& name) {
  return [=](const std::string& folder) {
    entryPoint((folder + name).c_str());
    return "";
  };
}

Call reader(void* (*entryPoint)(const char*), const std::string& name) {
  return
      [=](const std::string& folder) { return stringBytes(entryPoint((folder + name).c_str())); };
}

Call textWriter(void (*entryPoint)(const char*, const char*), const std::string& name,
                const std::string& text) {
  return [=](const std::string& folder) {
    entryPoint((folder + name).c_str(), text.c_str());
    return "";
  };
}

std::string writeThroughHandle(const std::string& folder) {
  const std::int64_t handle = quen_io_FileWriter__openPath((folder + "file").c_str(), 0);
  const std::string text(20'000, 'w');
  if (handle == 0) return "";
  quen_io_FileWriter__writeHandle(handle, "first");
  if (!takeException()) quen_io_FileWriter__writeHandle(handle, text.c_str());
  auto failed = takeException();
  if (!failed) {
    quen_io_FileWriter__flushHandle(handle);
    failed = takeException();
  }
  quen_io_FileWriter__closeHandle(handle);
  if (failed && !takeException()) return "closed after a failure";
  if (failed) Quen_raise(failed->className.c_str(), failed->message.c_str());
  return "";
}

const std::string kLong(20'000, 'n');

const std::map<std::string, Call> kCalls{
    {"FileInputStream__existsPath", textQuery(quen_io_FileInputStream__existsPath, "file")},
    {"FileInputStream__isRegularPath", textQuery(quen_io_FileInputStream__isRegularPath, "file")},
    {"FileInputStream__sizePath", textQuery(quen_io_FileInputStream__sizePath, "file")},
    {"Path__exists", query(quen_io_Path__exists, "file")},
    {"Path__isRegular", query(quen_io_Path__isRegular, "file")},
    {"Path__isDirectory", query(quen_io_Path__isDirectory, "folder")},
    {"Path__isSymlink", query(quen_io_Path__isSymlink, "link")},
    {"Path__size", query(quen_io_Path__size, "file")},
    {"Path__lastModified",
     [](const std::string& folder) {
       return quen_io_Path__lastModified(newPath(folder + "file")) == 0 ? "0" : "a time";
     }},
    {"Path__pathKindPath", reader(quen_io_Path__pathKindPath, "folder")},
    {"Path__absolutePath", reader(quen_io_Path__absolutePath, "file")},
    {"Path_toAbsolute",
     [](const std::string&) {
       return pathText(quen_io_Path_toAbsolute(newPath("name"))).value_or("null");
     }},
    {"Path_cwd",
     [](const std::string&) {
       return pathText(__quen_propget_quen_io_Path_cwd()).value_or("").empty() ? "" : "a folder";
     }},
    {"Path__cwdPath",
     [](const std::string&) {
       return stringBytes(quen_io_Path__cwdPath()).empty() ? "" : "a folder";
     }},
    {"Path__relativizePath",
     [](const std::string& folder) {
       return stringBytes(quen_io_Path__relativizePath((folder + "folder/inner").c_str(),
                                                       (folder + "link").c_str()));
     }},
    {"Path_relativize",
     [](const std::string& folder) {
       return pathText(quen_io_Path_relativize(newPath(folder + "folder/inner"),
                                               newPath(folder + "link")))
           .value_or("null");
     }},
    {"Path_remove", action(quen_io_Path_remove, "file")},
    {"Path_rename",
     [](const std::string& folder) {
       quen_io_Path_rename(newPath(folder + "file"), "renamed");
       return "";
     }},
    {"FilePath_touch", action(quen_io_FilePath_touch, "file")},
    {"FilePath_touch, new", action(quen_io_FilePath_touch, "new")},
    {"FolderPath__mkdirNative", textAction(quen_io_FolderPath__mkdirNative, "new")},
    {"FolderPath__mkdirsNative", textAction(quen_io_FolderPath__mkdirsNative, "new/a/b")},
    {"FolderPath__removeAllNative", textAction(quen_io_FolderPath__removeAllNative, "folder")},
    {"isUnsafeRecursiveDeletePath", textQuery(Quen_isUnsafeRecursiveDeletePath, "folder")},
    {"FolderPath__listNamesNative",
     [](const std::string& folder) {
       return std::to_string(
           listElements(quen_io_FolderPath__listNamesNative((folder + "folder").c_str())).size());
     }},
    {"FileReader__readAllTextPath", reader(quen_io_FileReader__readAllTextPath, "long")},
    {"FileInputStream__readTextFromOffsetPath",
     [](const std::string& folder) {
       return stringBytes(
           quen_io_FileInputStream__readTextFromOffsetPath((folder + "long").c_str(), 19'990));
     }},
    {"FileReader__readPrefixPath",
     [](const std::string& folder) {
       return stringBytes(quen_io_FileReader__readPrefixPath((folder + "long").c_str(), 10'000));
     }},
    {"FileInputStream__readBytesPath",
     [](const std::string& folder) {
       return std::to_string(quen_io_FileInputStream__readBytesPath(
           (folder + "long").c_str(), 5, newByteArray(std::size_t{10'000}), 10'000));
     }},
    {"TOML__readStrictPath", reader(quen_io_toml_TOML__readStrictPath, "long")},
    {"FileWriter__truncatePath", textQuery(quen_io_FileWriter__truncatePath, "file")},
    {"FileOutputStream__truncatePath", textQuery(quen_io_FileOutputStream__truncatePath, "file")},
    {"FileWriter__appendPath", textWriter(quen_io_FileWriter__appendPath, "file", kLong)},
    {"FileOutputStream__appendTextPath",
     textWriter(quen_io_FileOutputStream__appendTextPath, "file", "short")},
    {"FileWriter__writePath", textWriter(quen_io_FileWriter__writePath, "file", kLong)},
    {"Files__writeBytesPath",
     [](const std::string& folder) {
       void* bytes = newByteArray(std::vector<std::uint8_t>(20'000, 'b'));
       quen_io_Files__writeBytesPath((folder + "file").c_str(), bytes);
       return "";
     }},
    {"Files__writeBytesWithPrefixPath",
     [](const std::string& folder) {
       void* bytes = newByteArray(std::vector<std::uint8_t>(20'000, 'b'));
       quen_io_Files__writeBytesWithPrefixPath((folder + "file").c_str(), "prefix", bytes);
       return "";
     }},
    {"FileOutputStream__appendBytesPath",
     [](const std::string& folder) {
       void* bytes = newByteArray(std::vector<std::uint8_t>(20'000, 'b'));
       quen_io_FileOutputStream__appendBytesPath((folder + "file").c_str(), bytes);
       return "";
     }},
    {"FileWriter handle", writeThroughHandle},
    {"DocumentIndexStore__writeAtomic",
     textWriter(quen_data_internal_DocumentIndexStore__writeAtomic, "file", kLong)},
};

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::size_t shortTransfer() {
  static const char* const given = std::getenv("QUEN_IO_SHORT");
  return given == nullptr ? SIZE_MAX : std::stoul(given);
}

int run(const std::string& name, const std::string& folder) {
  const Scope scope;
  const quen::recording::Recorder recorder;
  const Call call = kCalls.at(name);
  const std::size_t before = openDescriptors();
  shortTransfer();
  std::string result;
  std::string escaped;
  getpgid(0);
  try {
    result = call(folder);
  } catch (const std::exception& exception) {
    escaped = exception.what();
  }
  getpgid(0);

  const auto raised = takeException();
  std::cout << nlohmann::json{{"result",
                               result.size() > 100 ? std::to_string(result.size()) : result},
                              {"raised", raised ? raised->className + ": " + raised->message : ""},
                              {"raises", recorder.raises()},
                              {"escaped", escaped},
                              {"leaked", static_cast<std::int64_t>(openDescriptors() - before)}}
            << '\n';
  return 0;
}

}  // namespace

#pragma GCC visibility push(default)

ssize_t read(int file, void* bytes, std::size_t count) {
  static auto* const next =
      reinterpret_cast<ssize_t (*)(int, void*, std::size_t)>(dlsym(RTLD_NEXT, "read"));
  return next(file, bytes, std::min(count, shortTransfer()));
}

ssize_t write(int file, const void* bytes, std::size_t count) {
  static auto* const next =
      reinterpret_cast<ssize_t (*)(int, const void*, std::size_t)>(dlsym(RTLD_NEXT, "write"));
  return next(file, bytes, std::min(count, shortTransfer()));
}

// A short write: only from the first buffer that is not empty.
ssize_t writev(int file, const iovec* parts, int count) {
  static auto* const next =
      reinterpret_cast<ssize_t (*)(int, const iovec*, int)>(dlsym(RTLD_NEXT, "writev"));
  if (shortTransfer() == SIZE_MAX) return next(file, parts, count);
  const iovec* part =
      std::find_if(parts, parts + count, [](const iovec& each) { return each.iov_len > 0; });
  return part == parts + count ? 0 : write(file, part->iov_base, part->iov_len);
}

#pragma GCC visibility pop

int main(int count, char** arguments) {
  if (count == 2 && std::string(arguments[1]) == "--names") {
    for (const auto& [name, call] : kCalls) std::cout << name << '\n';
    return 0;
  }
  if (count != 3) return 2;
  return run(arguments[1], std::string(arguments[2]) + "/");
}
