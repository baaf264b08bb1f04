// The embedding interface of the small runtime.

#include "runtime/small/host.h"

#include <algorithm>
#include <utility>

#include "runtime/small/arena.h"
#include "runtime/small/objects.h"
#include "runtime/small/state.h"

namespace quen::small {

Scope::Scope()
    : own_(std::make_unique<Arena>()), arena_(own_.get()), outer_(Arena::enter(arena_)) {}

Scope::Scope(Scope* shared) : arena_(shared->arena_), outer_(Arena::enter(arena_)) {}

Scope::~Scope() { Arena::enter(outer_); }

void* newPath(std::string_view text, bool parentTraversal) {
  return makePath(PathClass::kPath, text, parentTraversal);
}

void* newFolderPath(std::string_view text, bool parentTraversal) {
  return makePath(PathClass::kFolderPath, text, parentTraversal);
}

void* newFilePath(std::string_view text, bool parentTraversal) {
  return makePath(PathClass::kFilePath, text, parentTraversal);
}

void* newString(std::string_view bytes) { return makeString(bytes); }

void* newByteArray(std::size_t length) { return makeByteArray(std::vector<std::uint8_t>(length)); }
void* newByteArray(std::vector<std::uint8_t> bytes) { return makeByteArray(std::move(bytes)); }

void* newObject(std::string_view className) { return makeObject(className); }

bool defineClass(std::string_view qualifiedName, std::string_view superclass,
                 const std::vector<std::string>& fields) {
  return addClass(qualifiedName, superclass, fields);
}

std::size_t liveObjects() { return liveSlots(); }

std::string className(void* object) {
  const Object* known = asObject(object);
  return known == nullptr ? "" : known->type.qualifiedName;
}

std::string stringBytes(void* string) { return std::string(stringView(string)); }

std::string_view stringView(void* string) {
  const auto* known = as<StringObject>(string);
  return known == nullptr ? std::string_view() : known->bytes;
}

std::size_t stringLength(void* string) { return stringView(string).size(); }

std::vector<void*> listElements(void* list) {
  const auto* known = as<ListObject>(list);
  if (known == nullptr) return {};
  const std::lock_guard lock(known->elements->mutex);
  return known->elements->value;
}

std::vector<std::string> listStrings(void* list) {
  std::vector<std::string> strings;
  for (void* element : listElements(list)) strings.push_back(stringBytes(element));
  return strings;
}

std::vector<std::uint8_t> byteArrayContents(void* array) {
  const auto* known = as<ByteArrayObject>(array);
  if (known == nullptr) return {};
  const std::lock_guard lock(known->bytes->mutex);
  return known->bytes->value;
}

std::size_t copyByteArray(void* array, std::span<std::uint8_t> target) {
  const auto* known = as<ByteArrayObject>(array);
  if (known == nullptr) return 0;
  const std::lock_guard lock(known->bytes->mutex);
  const std::size_t count = std::min(target.size(), known->bytes->value.size());
  std::copy_n(known->bytes->value.begin(), count, target.begin());
  return count;
}

std::optional<std::string> pathText(void* path) {
  const StringObject* text = pathString(path);
  if (text == nullptr) return std::nullopt;
  return text->bytes;
}

bool hasParentTraversal(void* path) { return readField(path, "_hasParentTraversal") != 0; }

bool isFolderPath(void* object) {
  const Object* known = asObject(object);
  return known != nullptr && known->type.isSubclassOf("quen.io.FolderPath");
}

std::optional<QuenPathEntryKind> recordedKind(const std::filesystem::path& path) {
  return pathKinds().find(path.native());
}

std::size_t recordedKinds() { return pathKinds().size(); }

void forgetRecordedKinds() { pathKinds().clear(); }

PathKinds& pathKinds() {
  static auto& kinds = *new PathKinds;
  return kinds;
}

}  // namespace quen::small
