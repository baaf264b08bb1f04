#include "tests/checked/workload.h"

#include <cstdint>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using namespace quen::small;

namespace quen::tests {

namespace {

std::vector<std::string> pathTexts() {
  return {"",   "a",       "a/b/",       "x/./y/../z/",    "/a//b.txt",
          "..", "C:/a/b",  "C:\\a\\b.c", "\\\\server\\ab", "h\xC3\xA9llo/\xFF/b",
          "/",  ".hidden", "C:",         "//ab",           std::string(5000, 'x') + "/../y.tar.gz"};
}

// As a path object, a folder, a folder of a subclass, and what an entry point made of it.
std::vector<void*> pathsOf(const std::string& text) {
  void* home = newObject("work.Home");
  Quen_setField_ptr(home, "_path", newString(text));
  std::vector<void*> paths{newPath(text), newFolderPath(text), home};
  for (const std::size_t each : {0u, 1u, 2u}) paths.push_back(quen_io_Path_normalize(paths[each]));
  paths.push_back(nullptr);
  return paths;
}

void workOnOne(void* path) {
  quen_io_Path_normalize(path);
  quen_io_Path_toAbsolute(path);
  quen_io_Path_parent(path);
  quen_io_Path__isAbsolute(path);
  __quen_propget_quen_io_Path_isAbsolute(path);
  quen_io_Path__isNormalized(path);
  __quen_propget_quen_io_Path_isNormalized(path);
  quen_io_Path_name(path);
  __quen_propget_quen_io_Path_name(path);
  quen_io_Path_extension(path);
  __quen_propget_quen_io_Path_extension(path);
}

void workOnText(const std::string& text) {
  quen_io_Path__normalizePath(text.c_str());
  quen_io_Path__absolutePath(text.c_str());
  quen_io_Path__parentPath(text.c_str());
  quen_io_Path__relativizePath(text.c_str(), "/a");
  quen_io_Path__resolvePath("a", text.c_str());
  quen_io_Path__pathName(text.c_str());
  quen_io_Path__pathExtension(text.c_str());
  Quen_isUnsafeRecursiveDeletePath(text.c_str());
}

void workOnPaths() {
  for (const std::string& text : pathTexts()) {
    workOnText(text);
    for (void* path : pathsOf(text)) {
      workOnOne(path);
      quen_io_Path_relativize(path, newFolderPath("/b"));
      quen_io_Path_resolve(newPath("../c"), path);
      quen_io_Path_resolve__dup2(path, newString("no path"));
      // A text as an operand is passed as an untyped pointer too.
      quen_io_Path_resolve__dup3(path, const_cast<char*>(text.c_str()));
    }
  }
  for (void* operand : {newByteArray(3), quen_io_Path__rootStringsNative()}) {
    quen_io_Path_resolve(newFolderPath("a"), operand);
  }
  __quen_propget_quen_io_Path_cwd();
  quen_io_Path__cwdPath();
}

void askAbout(const fs::path& entry) {
  quen_io_Path__pathKindPath(entry.c_str());
  quen_io_FileInputStream__existsPath(entry.c_str());
  quen_io_FileInputStream__isRegularPath(entry.c_str());
  quen_io_FileInputStream__sizePath(entry.c_str());
  void* path = newPath(entry.native());
  quen_io_Path__exists(path);
  __quen_propget_quen_io_Path_exists(path);
  quen_io_Path__isRegular(path);
  __quen_propget_quen_io_Path_isRegular(path);
  quen_io_Path__isDirectory(path);
  __quen_propget_quen_io_Path_isDirectory(path);
  quen_io_Path__isSymlink(path);
  __quen_propget_quen_io_Path_isSymlink(path);
  quen_io_Path__size(path);
  __quen_propget_quen_io_Path_size(path);
  quen_io_Path__lastModified(path);
  __quen_propget_quen_io_Path_lastModified(path);
}

void workOnEntries(const fs::path& folder) {
  quen_io_FolderPath__mkdirNative((folder / "sub").c_str());
  quen_io_FolderPath__mkdirsNative((folder / "deep" / "er").c_str());
  quen_io_FilePath_touch(newFilePath((folder / "file").native()));
  quen_io_Path_touch(newFilePath((folder / "\xFF\xC3\xA9").native()));
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");

  quen_io_FolderPath__listNamesNative(folder.c_str());
  for (const char* name : {"sub", "file", "\xFF\xC3\xA9", "link", "dangling", "missing"}) {
    askAbout(folder / name);
  }
  askAbout("/dev/null");
  quen_io_Path__exists(nullptr);
  takeException();

  quen_io_Path_rename(newFilePath((folder / "sub" / ".." / "file").native()), "second");
  void* moved = quen_io_Path_normalize(newFilePath((folder / "sub" / ".." / "second").native()));
  quen_io_Path_rename(moved, "third");
  quen_io_Path_rename(moved, "last");
  quen_io_Path_remove(moved);
  askAbout(folder / "file");  // listed above, and gone
  quen_io_FolderPath__removeAllNative((folder / "deep").c_str());
  quen_io_Path_remove(moved);  // raises, since it is gone
  takeException();
}

void workOnTexts(const fs::path& folder) {
  const std::string file = folder / "text";
  const std::string content = "h\xC3\xA9llo\r\n" + std::string(5000, 'x');
  quen_io_FileWriter__writePath(file.c_str(), content.c_str());
  quen_io_FileWriter__appendPath(file.c_str(), "more");
  quen_io_FileOutputStream__appendTextPath(file.c_str(), "and more");
  quen_io_FileReader__readAllTextPath(file.c_str());
  quen_io_FileInputStream__readTextFromOffsetPath(file.c_str(), 2);
  quen_io_FileReader__readPrefixPath(file.c_str(), 4);
  quen_io_toml_TOML__readStrictPath(file.c_str());
  quen_data_internal_DocumentIndexStore__writeAtomic(file.c_str(), "index");
  quen_io_FileWriter__truncatePath(file.c_str());
  quen_io_FileOutputStream__truncatePath(file.c_str());
  quen_io_FileReader__readAllTextPath((folder / "missing").c_str());
  takeException();
}

void workOnBytes(const fs::path& folder) {
  const std::string file = folder / "bytes";
  const std::string given = folder / "given";
  std::vector<std::uint8_t> contents(100'000);
  for (std::size_t i = 0; i < contents.size(); ++i) contents[i] = static_cast<std::uint8_t>(i);
  std::ofstream(given).write(reinterpret_cast<const char*>(contents.data()), 100'000);
  void* bytes = newByteArray(contents);

  quen_io_Files__writeBytesPath(file.c_str(), bytes);
  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "prefix", bytes);
  quen_io_FileOutputStream__appendBytesPath(file.c_str(), bytes);
  for (const std::size_t length : {100'000u, 1000u, 10u}) {
    quen_io_FileInputStream__readBytesPath(
        file.c_str(), 0, newByteArray(std::vector<std::uint8_t>(length, 'x')), 1000);
    takeException();
  }
  quen_io_FileInputStream__readBytesPath(given.c_str(), 7, newByteArray(90'000), 90'000);

  for (void* other : {newString("no bytes"), newPath("a"), static_cast<void*>(nullptr)}) {
    quen_io_Files__writeBytesPath(file.c_str(), other);
    takeException();
    quen_io_FileOutputStream__appendBytesPath(file.c_str(), other);
    takeException();
    quen_io_FileInputStream__readBytesPath(given.c_str(), 0, other, 10);
    takeException();
  }
}

void workOnHandles(const fs::path& folder) {
  const std::int64_t handle = quen_io_FileWriter__openPath((folder / "log").c_str(), 1);
  quen_io_FileWriter__writeHandle(handle, "a line\n");
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  quen_io_FileWriter__writeHandle(handle, "too late");
  takeException();
  quen_io_FileWriter__flushHandle(std::numeric_limits<std::int64_t>::max());
  takeException();
}

// While an exception is pending on the first thread.
void workOnAnotherThread(const fs::path& folder) {
  const std::string file = folder / "of_both";
  quen_io_FileWriter__writePath(file.c_str(), "text");
  quen_io_Path_remove(newPath(""));
  std::thread([&file] {
    const Scope scope;
    quen_io_FileReader__readAllTextPath(file.c_str());
    quen_io_Path_normalize(newPath("a/b"));
    quen_io_Path_remove(newPath(""));
    takeException();
  }).join();
  takeException();
}

}  // namespace

void workIn(const fs::path& folder) {
  const Scope scope;
  defineClass("work.Home", "quen.io.FolderPath", {});
  workOnPaths();
  workOnEntries(folder);
  workOnTexts(folder);
  workOnBytes(folder);
  workOnAnotherThread(folder);
  workOnHandles(folder);
}

}  // namespace quen::tests
