// Checks a runtime against the requirements of the module. Copy this file, implement the members,
// and link it with the kit and the runtime:
//
//   add_executable(my_runtime_conformance my_runtime_conformance.cpp)
//   target_link_libraries(my_runtime_conformance PRIVATE quen::conformance_kit my_runtime)
//
// quen/io/conformance.h documents each member, and conformance/small_adapter.h implements them for
// the small runtime. As it is, this adapter creates no objects, so most requirements are not met.

#include "quen/io/conformance.h"

using quen::conformance::Exception;

namespace {

class MyRuntime final : public quen::conformance::Adapter {
 public:
  // Creating objects.
  void* newPath(const std::string&) const override { return nullptr; }
  void* newFolderPath(const std::string&) const override { return nullptr; }
  void* newPathWithoutText() const override { return nullptr; }
  void* newString(const std::string&) const override { return nullptr; }
  void* newByteArray(const std::vector<std::uint8_t>&) const override { return nullptr; }
  void* newOtherObject() const override { return nullptr; }

  // Reading objects.
  std::string stringBytes(void*) const override { return {}; }
  std::vector<void*> listElements(void*) const override { return {}; }
  std::vector<std::uint8_t> byteArrayContents(void*) const override { return {}; }
  bool isFolderPath(void*) const override { return false; }

  // Taking the pending exception of this thread.
  std::optional<Exception> takeException() const override { return std::nullopt; }

  // Also override newFolderSubclass if FolderPath has a subclass, enterThread and leaveThread if
  // threads have to be registered with the runtime, sameObject if an object may have several
  // handles, collect if there is a garbage collector, beforeWaiting and afterWaiting if there is a
  // global lock, afterFork if the runtime has to be told of a fork, and oneThreadOnly or patience
  // if it has one thread or is slow.
};

}  // namespace

// Initialize the runtime here, before runConformance. "--help" prints the options.
int main(int count, char** arguments) {
  return quen::conformance::runConformance(MyRuntime(), count, arguments);
}
