// The object model of the small runtime: classes with superclasses and named fields, and four
// layouts of objects. An object never changes its class; its mutable state may be accessed from any
// thread.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/small/large_copies.h"

namespace quen::small {

// The layout of the objects of a class.
enum class Form { kInstance, kString, kList, kByteArray };

// A class lives as long as the process. Fields of the superclass come first.
struct Class {
  std::string qualifiedName;
  std::string shortName;
  const Class* superclass;
  Form form;
  std::vector<std::string> fields;

  // Whether this is the class of that short or qualified name, or a subclass of it.
  bool isSubclassOf(std::string_view name) const;

  // The index of the field, or the number of fields if there is none of that name.
  std::size_t fieldIndex(std::string_view name) const;
};

// See defineClass in host.h.
bool addClass(std::string_view qualifiedName, std::string_view superclass,
              const std::vector<std::string>& fields);

struct Object {
  explicit Object(const Class& itsClass) : type(itsClass) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  const Class& type;
};

struct StringObject final : Object {
  static constexpr Form kForm = Form::kString;
  StringObject(const Class& itsClass, std::string_view text)
      : Object(itsClass), bytes(copyOf(text)) {}

  const std::string bytes;
};

// Fields hold an integer or a pointer to an object.
struct Instance final : Object {
  static constexpr Form kForm = Form::kInstance;
  static constexpr std::size_t kMostFields = 6;
  using Object::Object;

  std::array<std::atomic<std::int64_t>, kMostFields> fields{};
};

template <class Value>
struct Guarded {
  std::mutex mutex;
  Value value;
};

struct ListObject final : Object {
  static constexpr Form kForm = Form::kList;
  using Object::Object;

  const std::unique_ptr<Guarded<std::vector<void*>>> elements =
      std::make_unique<Guarded<std::vector<void*>>>();
};

struct ByteArrayObject final : Object {
  static constexpr Form kForm = Form::kByteArray;
  ByteArrayObject(const Class& itsClass, std::vector<std::uint8_t> contents) : Object(itsClass) {
    bytes->value = std::move(contents);
  }

  const std::unique_ptr<Guarded<std::vector<std::uint8_t>>> bytes =
      std::make_unique<Guarded<std::vector<std::uint8_t>>>();
};

// The object at the pointer, or null if it is not an object. Safe for every pointer value.
Object* asObject(void* pointer);

// The same, if the object has the layout T; null otherwise.
template <class T>
T* as(void* pointer) {
  Object* object = asObject(pointer);
  return object != nullptr && object->type.form == T::kForm ? static_cast<T*>(object) : nullptr;
}

// The path classes.
enum class PathClass { kPath, kFolderPath, kFilePath };

// New objects in the current scope.
Object* makeString(std::string_view bytes);
Object* makeByteArray(std::vector<std::uint8_t> bytes);
Object* makePath(PathClass pathClass, std::string_view text, bool parentTraversal);
Object* makeObject(std::string_view className);  // null when the class is unknown

// The String in the field "_path" of a path object; null when there is none.
const StringObject* pathString(void* object);

// The value of the field; 0 when there is no such field.
std::int64_t readField(void* object, std::string_view name);

// Stores a value in the field, if there is one of that name.
void writeField(void* object, std::string_view name, std::int64_t value);

}  // namespace quen::small
