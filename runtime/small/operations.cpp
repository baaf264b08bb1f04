// What the 20 operations do in the small runtime.

#include "runtime/small/operations.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <system_error>
#include <utility>

#include "runtime/small/arena.h"
#include "runtime/small/host.h"
#include "runtime/small/objects.h"
#include "runtime/small/state.h"

namespace fs = std::filesystem;

namespace quen::small::operations {

namespace {

std::string_view viewOf(const char* text) { return text == nullptr ? "" : text; }

bool isSeparator(char character) { return character == '/' || character == '\\'; }

QuenPathEntryKind kindOf(const fs::file_status& status) {
  switch (status.type()) {
    case fs::file_type::regular: return QuenPathEntryKind::kRegularFile;
    case fs::file_type::directory: return QuenPathEntryKind::kDirectory;
    case fs::file_type::none:
    case fs::file_type::not_found: return kMissingEntry;
    default: return kOtherEntry;
  }
}

std::string refusal(void* object) {
  if (object == nullptr) return "Expected Byte[] but got null";
  return "Expected Byte[] but got " + className(object);
}

}  // namespace

fs::path runtimeFsPath(const char* text) { return viewOf(text); }

// No path of this host has a drive or UNC root to render, so the flag changes nothing.
std::string visiblePathString(const fs::path& path, bool) { return path.native(); }

void* allocPathString(const fs::path& path, bool) { return makeString(path.native()); }

void* allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder, bool,
                                   bool parentTraversal) {
  const PathClass pathClass = nonFolder ? PathClass::kPath : PathClass::kFolderPath;
  return makePath(pathClass, path.native(), parentTraversal);
}

const char* filePathFromObject(void* object) {
  const StringObject* text = pathString(object);
  return text == nullptr ? nullptr : text->bytes.c_str();
}

// "C:\", "C:/" or "\\server".
bool pathHasExplicitWindowsRoot(const char* text) {
  const std::string_view path = viewOf(text);
  if (path.size() < 3) return false;
  const bool drive = std::isalpha(static_cast<unsigned char>(path[0])) != 0 && path[1] == ':' &&
                     isSeparator(path[2]);
  return drive || (path.starts_with("\\\\") && !isSeparator(path[2]));
}

QuenPathEntryKind pathEntryKind(const fs::path& path) {
  std::error_code error;
  return kindOf(fs::status(path, error));
}

void cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  pathKinds().record(path.native(), kind);
}

bool pathExists(const fs::path& path) { return pathEntryKind(path) != kMissingEntry; }

void* allocString(const std::string& bytes) { return makeString(bytes); }

bool readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  const auto* array = as<ByteArrayObject>(object);
  if (array == nullptr) {
    error = refusal(object);
    return false;
  }
  const std::lock_guard lock(array->bytes->mutex);
  bytes = array->bytes->value;
  return true;
}

bool writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                        std::string& error) {
  const auto* array = as<ByteArrayObject>(object);
  if (array == nullptr) {
    error = refusal(object);
    return false;
  }
  const std::lock_guard lock(array->bytes->mutex);
  std::vector<std::uint8_t>& contents = array->bytes->value;
  if (count > contents.size()) {
    error = "Byte[] of length " + std::to_string(contents.size()) + " cannot hold " +
            std::to_string(count) + " bytes";
    return false;
  }
  std::copy_n(bytes, count, contents.begin());
  return true;
}

bool hasObjectMagic(void* pointer) { return asObject(pointer) != nullptr; }

void* allocObject(const char* className) { return makeObject(viewOf(className)); }

std::int64_t getFieldI64(void* object, const char* field) {
  return readField(object, viewOf(field));
}

void setFieldPtr(void* object, const char* field, void* value) {
  writeField(object, viewOf(field), reinterpret_cast<std::int64_t>(value));
}

int isInstanceOf(void* object, const char* className) {
  const Object* known = asObject(object);
  return known != nullptr && known->type.isSubclassOf(viewOf(className)) ? 1 : 0;
}

void addToArrayList(void* list, void* element) {
  const auto* known = as<ListObject>(list);
  if (known == nullptr) return;
  const std::lock_guard lock(known->elements->mutex);
  known->elements->value.push_back(element);
}

void raise(const char* exceptionClass, const char* message) {
  std::optional<Exception>& pending = pendingException();
  if (!pending)
    pending = Exception{std::string(viewOf(exceptionClass)), std::string(viewOf(message))};
}

int hasPendingError() { return pendingException().has_value() ? 1 : 0; }

}  // namespace quen::small::operations
