// The adapter of the small runtime, which also serves as an example.
#pragma once

#include <utility>

#include "quen/io/conformance.h"
#include "runtime/small/host.h"

namespace quen::conformance {

class SmallAdapter : public Adapter {
 public:
  SmallAdapter() { small::defineClass("conformance.Home", "quen.io.FolderPath", {}); }

  void* newPath(const std::string& text) const override { return small::newPath(text); }
  void* newFolderPath(const std::string& text) const override { return small::newFolderPath(text); }

  void* newFolderSubclass(const std::string& text) const override {
    void* home = small::newObject("conformance.Home");
    Quen_setField_ptr(home, "_path", small::newString(text));
    return home;
  }

  void* newPathWithoutText() const override { return small::newObject("quen.io.Path"); }
  void* newString(const std::string& bytes) const override { return small::newString(bytes); }

  void* newByteArray(const std::vector<std::uint8_t>& bytes) const override {
    return small::newByteArray(bytes);
  }

  void* newOtherObject() const override { return small::newObject("Object"); }

  std::string stringBytes(void* string) const override { return small::stringBytes(string); }

  std::vector<void*> listElements(void* list) const override { return small::listElements(list); }

  std::vector<std::uint8_t> byteArrayContents(void* array) const override {
    return small::byteArrayContents(array);
  }

  bool isFolderPath(void* path) const override { return small::isFolderPath(path); }

  std::optional<bool> sameObject(void* one, void* other) const override { return one == other; }

  std::optional<Exception> takeException() const override {
    std::optional<small::Exception> taken = small::takeException();
    if (!taken) return std::nullopt;
    return Exception{std::move(taken->className), std::move(taken->message)};
  }
};

}  // namespace quen::conformance
