// Entry points that are called inside an operation, by a finalizer for instance. The check stands
// for the outer entry point: it calls others while it holds texts and objects.

#include <fstream>

#include "conformance/operations.h"
#include "conformance/requirement.h"
#include "conformance/scratch_folder.h"
#include "conformance/waiting.h"
#include "quen/io/entry_points.h"

namespace quen::conformance {

namespace {

constexpr int kRounds = 100;

// What finalizers and other native code call: they use each operation.
void callEntryPoints(const Adapter& adapter, const std::filesystem::path& folder) {
  const std::string file = folder / "inner";
  void* path = made(adapter.newPath(file), "the path object");
  void* bytes = made(adapter.newByteArray({1, 2, 3}), "the Byte[]");

  const WithoutGlobalLock call(adapter);
  const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), 0);
  quen_io_FileWriter__writeHandle(handle, "text");
  quen_io_FileWriter__closeHandle(handle);
  quen_io_FileReader__readAllTextPath(file.c_str());
  quen_io_FileOutputStream__appendBytesPath(file.c_str(), bytes);
  quen_io_FolderPath__listNamesNative(folder.c_str());
  quen_io_Path_resolve(quen_io_Path_normalize(path), path);
  quen_io_Path_rename(path, "other");
}

void requireTextsAndObjectsKept(const Adapter& adapter) {
  const ScratchFolder scratch;
  const std::string text = "/outer/text/" + std::string(100, 'x');
  void* path = made(adapter.newPath(text), "the path object");
  const char* lent = operations::filePathFromObject(path);
  require(lent != nullptr, "the text is null");
  void* list = made(operations::allocObject("ArrayList"), "the ArrayList");
  void* string = made(operations::allocString("outer"), "the String");

  for (int i = 0; i < kRounds; ++i) callEntryPoints(adapter, scratch.path());
  operations::addToArrayList(list, string);

  requireEqual("the text", lent, text);
  const std::vector<void*> elements = adapter.listElements(list);
  require(elements.size() == 1, std::to_string(elements.size()) + " elements, not 1");
  requireEqual("the element", adapter.stringBytes(made(elements[0], "the element")), "outer");
}

// An entry point that does not raise changes nothing about what is pending.
void requirePendingKept(const Adapter& adapter) {
  const ScratchFolder scratch;
  operations::raise("IOException", "outer");
  const std::string folder = scratch.path();
  {
    const WithoutGlobalLock call(adapter);
    quen_io_FolderPath__listNamesNative(folder.c_str());
    quen_io_Path__normalizePath("a/../b");
  }
  require(operations::hasPendingError() != 0, "nothing is pending");
  requireRaised(adapter, "outer");
}

}  // namespace

Requirements reentryRequirements() {
  return {
      {"entry points inside an operation leave the texts and objects of the outer one alone",
       requireTextsAndObjectsKept},
      {"entry points inside an operation leave the pending exception of the outer one alone",
       requirePendingKept},
  };
}

}  // namespace quen::conformance
