// Does this runtime do what the module needs? Copy the file, fill in the members, and link it with
// the kit and the runtime:
//
//   add_executable(my_runtime_conformance my_runtime_conformance.cpp)
//   target_link_libraries(my_runtime_conformance PRIVATE quen::conformance_kit my_runtime)
//
// quen/io/conformance.h says what each member has to do, and small_adapter.h has them all filled in
// for another runtime. As it stands here the runtime makes no objects, and so meets little.

#include <iostream>

#include "quen/io/conformance.h"

using quen::conformance::Exception;

namespace {

class MyRuntime final : public quen::conformance::Adapter {
 public:
  // Making objects.
  void* newPath(const std::string&) const override { return nullptr; }
  void* newFolderPath(const std::string&) const override { return nullptr; }
  void* newPathWithoutText() const override { return nullptr; }
  void* newString(const std::string&) const override { return nullptr; }
  void* newByteArray(const std::vector<std::uint8_t>&) const override { return nullptr; }
  void* newOtherObject() const override { return nullptr; }

  // Looking at objects.
  std::string stringBytes(void*) const override { return {}; }
  std::vector<void*> listElements(void*) const override { return {}; }
  std::vector<std::uint8_t> byteArrayContents(void*) const override { return {}; }
  bool isFolderPath(void*) const override { return false; }

  // Taking the exception that is pending on this thread.
  std::optional<Exception> takeException() const override { return std::nullopt; }

  // Override newFolderSubclass too when a class below FolderPath exists, enterThread and
  // leaveThread when the runtime has to know its threads.
};

}  // namespace

// Whatever the runtime needs before language code runs belongs in front.
int main() { return quen::conformance::runConformance(MyRuntime(), std::cout); }
