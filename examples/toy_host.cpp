// A complete host in one file: a toy object model, the operations over it, and some calls of the
// module. A starting point for a runtime of your own. It compiles as C++17.
//
// Objects live as long as the process and are never moved. A real runtime collects them, answers
// kinds from a cache, and throws the pending exception after the entry point has returned to
// compiled code.

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;

namespace toy {

// One layout for all classes; most objects use only some members.
struct Object {
  std::string className;
  std::string bytes;               // of a String
  std::vector<std::uint8_t> data;  // of a Byte[]
  std::vector<void*> elements;     // of an ArrayList
  std::map<std::string, std::int64_t> integers;
  std::map<std::string, Object*> references;
};

// The superclasses. Programs of the language may define subclasses of FolderPath.
const std::map<std::string, std::string> kSuperclasses{
    {"quen.io.FolderPath", "quen.io.Path"},
    {"app.HomeFolder", "quen.io.FolderPath"},
};

// All objects, and their addresses, by which objects are distinguished from C strings.
std::mutex gMutex;
std::deque<Object> gObjects;
std::set<const void*> gAddresses;

Object* make(const std::string& className) {
  const std::lock_guard lock(gMutex);
  Object* object = &gObjects.emplace_back();
  object->className = className;
  gAddresses.insert(object);
  return object;
}

Object* makeString(const std::string& bytes) {
  Object* string = make("String");
  string->bytes = bytes;
  return string;
}

Object* makePath(const std::string& text, const std::string& className = "quen.io.Path") {
  Object* path = make(className);
  path->references["_path"] = makeString(text);
  return path;
}

Object* asObject(void* pointer) { return static_cast<Object*>(pointer); }

// The pending exception of the thread. Further ones are dropped while it is pending.
thread_local std::optional<std::string> tPending;

std::optional<std::string> takePending() { return std::exchange(tPending, std::nullopt); }

}  // namespace toy

using toy::asObject;

// Paths and their texts.

fs::path Quen_runtimeFsPath(const char* text) { return text == nullptr ? "" : text; }

std::string Quen_visiblePathString(const fs::path& path, bool) { return path.string(); }

void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  return toy::makeString(Quen_visiblePathString(path, explicitWindowsRoot));
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  toy::Object* object = toy::makePath(Quen_visiblePathString(path, explicitWindowsRoot),
                                      nonFolder ? "quen.io.Path" : "quen.io.FolderPath");
  object->integers["_hasParentTraversal"] = parentTraversal ? 1 : 0;
  return object;
}

const char* Quen_filePathFromObject(void* object) {
  if (object == nullptr) return nullptr;
  const auto path = asObject(object)->references.find("_path");
  return path == asObject(object)->references.end() ? nullptr : path->second->bytes.c_str();
}

// A UNC root such as \\server, or a drive: a letter, a colon and either separator.
bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  if (text == nullptr) return false;
  if (std::strncmp(text, "\\\\", 2) == 0) return true;
  const bool letter = (text[0] >= 'A' && text[0] <= 'Z') || (text[0] >= 'a' && text[0] <= 'z');
  return letter && text[1] == ':' && (text[2] == '\\' || text[2] == '/');
}

// Kinds of entries.

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_regular_file(status)) return QuenPathEntryKind::kRegularFile;
  if (fs::is_directory(status)) return QuenPathEntryKind::kDirectory;
  return QuenPathEntryKind{0};
}

void Quen_cachePathEntryKind(const fs::path&, QuenPathEntryKind) {}

bool Quen_pathExists(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

// Strings, byte arrays, lists, objects.

void* Quen_allocString(const std::string& bytes) { return toy::makeString(bytes); }

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  if (object == nullptr || asObject(object)->className != "Byte[]") {
    error = "Expected Byte[]";
    return false;
  }
  bytes = asObject(object)->data;
  return true;
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  if (object == nullptr || asObject(object)->className != "Byte[]") {
    error = "Expected Byte[]";
    return false;
  }
  // The length of an array is fixed: a short read fills part of it, and more bytes do not fit.
  std::vector<std::uint8_t>& data = asObject(object)->data;
  if (count > data.size()) {
    error = "Byte[] is too short";
    return false;
  }
  std::copy_n(bytes, count, data.begin());
  return true;
}

bool hasObjectMagic(void* pointer) {
  const std::lock_guard lock(toy::gMutex);
  return toy::gAddresses.count(pointer) != 0;
}

void* Quen_allocObject(const char* className) { return toy::make(className); }

void quen_collections_ArrayList_add(void* list, void* element) {
  asObject(list)->elements.push_back(element);
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  return asObject(object)->integers[field];
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  asObject(object)->references[field] = asObject(value);
}

// Compares short and qualified names of the object's class and its superclasses.
int Quen_isInstanceOf(void* object, const char* className) {
  if (object == nullptr) return 0;
  const std::string name = className;
  std::string known = asObject(object)->className;
  while (!known.empty()) {
    if (known == name || known.substr(known.rfind('.') + 1) == name) return 1;
    const auto above = toy::kSuperclasses.find(known);
    known = above == toy::kSuperclasses.end() ? "" : above->second;
  }
  return 0;
}

// Exceptions.

void Quen_raise(const char* exceptionClass, const char* message) {
  if (!toy::tPending) toy::tPending = std::string(exceptionClass) + ": " + message;
}

int Quen_hasPendingError() { return toy::tPending ? 1 : 0; }

// Calls the module as compiled code would.

int main() {
  void* file = toy::makePath("notes/../notes/today.txt");
  void* normal = quen_io_Path_normalize(file);
  std::cout << "normal form: " << Quen_filePathFromObject(normal) << '\n';
  std::cout << "came from a parent step: " << Quen_getField_i64(normal, "_hasParentTraversal")
            << '\n';

  const fs::path folder =
      fs::temp_directory_path() / ("quen-io-toy-host-" + std::to_string(getpid()));
  quen_io_FolderPath__mkdirsNative(folder.c_str());
  const std::string text = folder / "greeting.txt";
  quen_io_FileWriter__writePath(text.c_str(), "gr\xC3\xBC\xC3\x9F dich\n");
  std::cout << "read back: " << asObject(quen_io_FileReader__readAllTextPath(text.c_str()))->bytes;

  const auto* names = asObject(quen_io_FolderPath__listNamesNative(folder.c_str()));
  std::cout << "in the folder: " << asObject(names->elements.at(0))->bytes << '\n';

  quen_io_FolderPath__removeAllNative("/");
  std::cout << "raised: " << toy::takePending().value_or("nothing") << '\n';
  quen_io_FolderPath__removeAllNative(folder.c_str());
  std::cout << "raised: " << toy::takePending().value_or("nothing") << '\n';
  return 0;
}
