#include "runtime/small/objects.h"

#include <algorithm>
#include <deque>
#include <shared_mutex>

#include "runtime/small/arena.h"

namespace quen::small {

namespace {

constexpr std::string_view kPathField = "_path";
constexpr std::string_view kTraversalField = "_hasParentTraversal";

Class makeClass(std::string_view qualifiedName, const Class* superclass, Form form,
                const std::vector<std::string>& ownFields = {}) {
  const std::size_t nameStart = qualifiedName.rfind('.') + 1;
  std::vector<std::string> fields;
  if (superclass != nullptr) fields = superclass->fields;
  fields.insert(fields.end(), ownFields.begin(), ownFields.end());
  return {std::string(qualifiedName), std::string(qualifiedName.substr(nameStart)), superclass,
          form, std::move(fields)};
}

// Every class of the process. A deque, since classes refer to one another by address.
struct Classes {
  std::deque<Class> all;
  std::shared_mutex mutex;

  const Class& object = builtIn("Object", nullptr, Form::kInstance);
  const Class& string = builtIn("String", &object, Form::kString);
  const Class& byteArray = builtIn("Byte[]", &object, Form::kByteArray);
  const Class& list = builtIn("quen.collections.ArrayList", &object, Form::kList);
  const Class& path = builtIn("quen.io.Path", &object, Form::kInstance,
                              {std::string(kPathField), std::string(kTraversalField)});
  const Class& folderPath = builtIn("quen.io.FolderPath", &path, Form::kInstance);
  const Class& filePath = builtIn("quen.io.FilePath", &path, Form::kInstance);

  const Class* find(std::string_view name) {
    const std::shared_lock lock(mutex);
    return findLocked(name);
  }

  bool add(std::string_view qualifiedName, std::string_view superclass,
           const std::vector<std::string>& fields) {
    const std::unique_lock lock(mutex);
    const Class* above = findLocked(superclass);
    if (above == nullptr || findLocked(qualifiedName) != nullptr) return false;
    if (above->fields.size() + fields.size() > Instance::kMostFields) return false;
    all.push_back(makeClass(qualifiedName, above, above->form, fields));
    return true;
  }

 private:
  const Class& builtIn(std::string_view name, const Class* superclass, Form form,
                       const std::vector<std::string>& fields = {}) {
    return all.emplace_back(makeClass(name, superclass, form, fields));
  }

  const Class* findLocked(std::string_view name) const {
    const auto named = [name](const Class& each) {
      return each.qualifiedName == name || each.shortName == name;
    };
    const auto found = std::find_if(all.begin(), all.end(), named);
    return found == all.end() ? nullptr : &*found;
  }
};

Classes& classes() {
  static auto& theClasses = *new Classes;
  return theClasses;
}

const Class& classOf(PathClass pathClass) {
  switch (pathClass) {
    case PathClass::kFolderPath: return classes().folderPath;
    case PathClass::kFilePath: return classes().filePath;
    case PathClass::kPath: break;
  }
  return classes().path;
}

std::atomic<std::int64_t>* findField(void* object, std::string_view name) {
  auto* instance = as<Instance>(object);
  if (instance == nullptr) return nullptr;
  const std::size_t index = instance->type.fieldIndex(name);
  return index < instance->type.fields.size() ? &instance->fields[index] : nullptr;
}

}  // namespace

bool Class::isSubclassOf(std::string_view name) const {
  for (const Class* each = this; each != nullptr; each = each->superclass) {
    if (each->shortName == name || each->qualifiedName == name) return true;
  }
  return false;
}

std::size_t Class::fieldIndex(std::string_view name) const {
  const auto found = std::find(fields.begin(), fields.end(), name);
  return static_cast<std::size_t>(found - fields.begin());
}

bool addClass(std::string_view qualifiedName, std::string_view superclass,
              const std::vector<std::string>& fields) {
  return classes().add(qualifiedName, superclass, fields);
}

Object* makeString(std::string_view bytes) {
  return Arena::current().make<StringObject>(classes().string, bytes);
}

Object* makeByteArray(std::vector<std::uint8_t> bytes) {
  return Arena::current().make<ByteArrayObject>(classes().byteArray, std::move(bytes));
}

Object* makePath(PathClass pathClass, std::string_view text, bool parentTraversal) {
  Object* string = makeString(text);
  Object* path = Arena::current().make<Instance>(classOf(pathClass));
  writeField(path, kPathField, reinterpret_cast<std::int64_t>(string));
  writeField(path, kTraversalField, parentTraversal ? 1 : 0);
  return path;
}

Object* makeObject(std::string_view className) {
  const Class* type = classes().find(className);
  if (type == nullptr) return nullptr;
  Arena& arena = Arena::current();
  switch (type->form) {
    case Form::kString: return arena.make<StringObject>(*type, std::string_view());
    case Form::kList: return arena.make<ListObject>(*type);
    case Form::kByteArray: return arena.make<ByteArrayObject>(*type, std::vector<std::uint8_t>());
    case Form::kInstance: break;
  }
  return arena.make<Instance>(*type);
}

const StringObject* pathString(void* object) {
  const std::int64_t value = readField(object, kPathField);
  return as<StringObject>(reinterpret_cast<void*>(value));
}

std::int64_t readField(void* object, std::string_view name) {
  const std::atomic<std::int64_t>* field = findField(object, name);
  return field == nullptr ? 0 : field->load();
}

void writeField(void* object, std::string_view name, std::int64_t value) {
  if (std::atomic<std::int64_t>* field = findField(object, name)) field->store(value);
}

}  // namespace quen::small
