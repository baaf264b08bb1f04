// The operations of quen/io/operations.h in the small runtime.

#include "runtime/small/operations.h"

#include <algorithm>
#include <string_view>

#include "runtime/small/arena.h"
#include "runtime/small/host.h"
#include "runtime/small/objects.h"
#include "runtime/small/state.h"

namespace fs = std::filesystem;

namespace quen::small::operations {

namespace {

std::string_view viewOf(const char* text) { return text == nullptr ? "" : text; }

std::string refusal(void* object) {
  if (object == nullptr) return "Expected Byte[] but got null";
  return "Expected Byte[] but got " + className(object);
}

}  // namespace

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

void cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  pathKinds().record(path.native(), kind);
}

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

}  // namespace quen::small::operations
