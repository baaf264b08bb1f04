// A program with a runtime of its own: every object is a text of some class, and none is ever
// freed.

#include <quen/io/entry_points.h>
#include <quen/io/operations.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <string_view>

namespace fs = std::filesystem;

namespace {

struct Object {
  std::string className;
  std::string text;
  bool parentTraversal = false;
};

std::deque<Object> gObjects;
std::string gPending;

void* newObject(std::string className, std::string text, bool parentTraversal = false) {
  gObjects.push_back({std::move(className), std::move(text), parentTraversal});
  return &gObjects.back();
}

std::string& textOf(void* object) { return static_cast<Object*>(object)->text; }

}  // namespace

fs::path Quen_runtimeFsPath(const char* text) { return text == nullptr ? "" : text; }

void* Quen_allocPathString(const fs::path& path, bool) { return Quen_allocString(path.string()); }

std::string Quen_visiblePathString(const fs::path& path, bool) { return path.string(); }

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder, bool,
                                        bool parentTraversal) {
  return newObject(nonFolder ? "Path" : "FolderPath", path.string(), parentTraversal);
}

const char* Quen_filePathFromObject(void* object) {
  return object == nullptr ? nullptr : textOf(object).c_str();
}

bool Quen_pathHasExplicitWindowsRoot(const char*) { return false; }

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_regular_file(status)) return QuenPathEntryKind::kRegularFile;
  return fs::is_directory(status) ? QuenPathEntryKind::kDirectory : QuenPathEntryKind{0};
}

void Quen_cachePathEntryKind(const fs::path&, QuenPathEntryKind) {}

bool Quen_pathExists(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

void* Quen_allocString(const std::string& bytes) { return newObject("String", bytes); }

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string&) {
  if (Quen_isInstanceOf(object, "Byte[]") == 0) return false;
  bytes.assign(textOf(object).begin(), textOf(object).end());
  return true;
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string&) {
  if (Quen_isInstanceOf(object, "Byte[]") == 0) return false;
  textOf(object).assign(bytes, bytes + count);
  return true;
}

bool hasObjectMagic(void* pointer) {
  return std::any_of(gObjects.begin(), gObjects.end(),
                     [pointer](const Object& object) { return &object == pointer; });
}

void* Quen_allocObject(const char* className) { return newObject(className, ""); }

std::int64_t Quen_getField_i64(void* object, const char*) {
  return static_cast<Object*>(object)->parentTraversal ? 1 : 0;
}

void Quen_setField_ptr(void* object, const char*, void* value) { textOf(object) = textOf(value); }

int Quen_isInstanceOf(void* object, const char* className) {
  return object != nullptr && static_cast<Object*>(object)->className == className ? 1 : 0;
}

void Quen_raise(const char* exceptionClass, const char* message) {
  gPending = std::string(exceptionClass) + ": " + message;
}

int Quen_hasPendingError() { return gPending.empty() ? 0 : 1; }

void quen_collections_ArrayList_add(void* list, void* element) {
  textOf(list) += textOf(element) + ' ';
}

int main() {
  void* path = quen_io_Path_normalize(newObject("FolderPath", "a/../b/"));
  std::cout << textOf(path) << ' ' << quen_io_Path__isNormalized(path) << '\n';

  quen_io_FileReader__readAllTextPath("/nowhere");
  std::cout << gPending << '\n';
}
