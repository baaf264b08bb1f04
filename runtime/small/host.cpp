// The host's side of the small runtime.

#include "runtime/small/host.h"

#include <utility>

#include "runtime/small/arena.h"
#include "runtime/small/objects.h"
#include "runtime/small/state.h"

namespace quen::small {

Scope::Scope()
    : own_(std::make_unique<Arena>()), arena_(own_.get()), outer_(Arena::enter(arena_)) {}

Scope::Scope(Scope* shared) : arena_(shared->arena_), outer_(Arena::enter(arena_)) {}

Scope::~Scope() { Arena::enter(outer_); }

void* newPath(std::string_view text) { return makePath(PathClass::kPath, text, false); }
void* newFolderPath(std::string_view text) { return makePath(PathClass::kFolderPath, text, false); }
void* newFilePath(std::string_view text) { return makePath(PathClass::kFilePath, text, false); }
void* newString(std::string_view bytes) { return makeString(bytes); }

void* newByteArray(std::size_t length) { return makeByteArray(std::vector<std::uint8_t>(length)); }
void* newByteArray(const std::vector<std::uint8_t>& bytes) { return makeByteArray(bytes); }

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

std::string stringBytes(void* string) {
  const auto* known = as<StringObject>(string);
  return known == nullptr ? "" : known->bytes;
}

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

std::optional<Exception> takeException() { return std::exchange(pendingException(), std::nullopt); }

std::optional<QuenPathEntryKind> recordedKind(const std::filesystem::path& path) {
  return pathKinds().find(path.native());
}

std::size_t recordedKinds() { return pathKinds().size(); }

void forgetRecordedKinds() { pathKinds().clear(); }

std::optional<Exception>& pendingException() {
  thread_local std::optional<Exception> pending;
  return pending;
}

PathKinds& pathKinds() {
  static auto& kinds = *new PathKinds;
  return kinds;
}

}  // namespace quen::small
