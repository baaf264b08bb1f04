// What the adapters of the conformance kit for real interpreters have in common.
#pragma once

#include <quen/io/conformance.h>
#include <quen/io/operations.h>
#include <quen/io/runtime_parts.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quen::hosts {

class HostAdapter : public conformance::Adapter {
 public:
  void* newPath(const std::string& text) const override { return newOf("Path", text); }
  void* newFolderPath(const std::string& text) const override { return newOf("FolderPath", text); }
  void* newFolderSubclass(const std::string& text) const override { return newOf("Home", text); }

  void* newPathWithoutText() const override {
    void* path = newPath("");
    Quen_setField_ptr(path, "_path", nullptr);
    return path;
  }

  void* newString(const std::string& bytes) const override { return Quen_allocString(bytes); }

  std::vector<std::uint8_t> byteArrayContents(void* array) const override {
    std::vector<std::uint8_t> bytes;
    std::string error;
    Quen_readByteArrayData(array, bytes, error);
    return bytes;
  }

  std::optional<conformance::Exception> takeException() const override {
    auto taken = parts::takeException();
    if (!taken) return std::nullopt;
    return conformance::Exception{std::move(taken->className), std::move(taken->message)};
  }

 private:
  // A new object of a class of the interpreter's module.
  virtual void* newOf(const char* className, const std::string& text) const = 0;
};

}  // namespace quen::hosts
