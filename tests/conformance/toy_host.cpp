// The conformance kit over the host of the example. The example is a program of its own, so its
// main gets another name here.

int runExample();
#define main runExample
#include "examples/toy_host.cpp"
#undef main

#include "quen/io/conformance.h"

namespace {

using quen::conformance::Exception;

class ToyAdapter final : public quen::conformance::Adapter {
 public:
  void* newPath(const std::string& text) const override { return toy::makePath(text); }

  void* newFolderPath(const std::string& text) const override {
    return toy::makePath(text, "quen.io.FolderPath");
  }

  void* newFolderSubclass(const std::string& text) const override {
    return toy::makePath(text, "app.HomeFolder");
  }

  void* newPathWithoutText() const override { return toy::make("quen.io.Path"); }
  void* newString(const std::string& bytes) const override { return toy::makeString(bytes); }

  void* newByteArray(const std::vector<std::uint8_t>& bytes) const override {
    toy::Object* array = toy::make("Byte[]");
    array->data = bytes;
    return array;
  }

  void* newOtherObject() const override { return toy::make("Object"); }
  std::string stringBytes(void* string) const override { return asObject(string)->bytes; }
  std::vector<void*> listElements(void* list) const override { return asObject(list)->elements; }

  std::vector<std::uint8_t> byteArrayContents(void* array) const override {
    return asObject(array)->data;
  }

  bool isFolderPath(void* path) const override {
    return asObject(path)->className == "quen.io.FolderPath";
  }

  std::optional<Exception> takeException() const override {
    const std::optional<std::string> pending = toy::takePending();
    if (!pending) return std::nullopt;
    const std::size_t colon = pending->find(": ");
    return Exception{pending->substr(0, colon), pending->substr(colon + 2)};
  }
};

}  // namespace

int main() { return quen::conformance::runConformance(ToyAdapter(), std::cout); }
