// The operations on several threads at once.

#include <atomic>
#include <filesystem>
#include <limits>
#include <memory>

#include "conformance/operations.h"
#include "conformance/requirement.h"
#include "conformance/waiting.h"
#include "quen/io/entry_points.h"

namespace quen::conformance {

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 200;

void useTexts(const Adapter& adapter, const std::string& text) {
  const std::filesystem::path path = operations::runtimeFsPath(text.c_str());
  requireEqual("the path", path.native(), text);
  requireEqual("the visible text", operations::visiblePathString(path, false), text);
  require(!operations::pathHasExplicitWindowsRoot(text.c_str()), "a Windows root is found");
  void* pathString = made(operations::allocPathString(path, false), "the String of a path");
  requireEqual("the String of a path", adapter.stringBytes(pathString), text);
}

void usePathObject(const Adapter& adapter, const std::string& text) {
  void* path =
      made(operations::allocTypedPathObjectFromPath(text, false, false, true), "the path object");
  const char* borrowed = operations::filePathFromObject(path);
  require(borrowed != nullptr, "the text is null");
  requireEqual("the text", borrowed, text);
  require(operations::hasObjectMagic(path), "no object is seen");
  require(adapter.isFolderPath(path) && (operations::isInstanceOf(path, "FolderPath") != 0 ||
                                         operations::isInstanceOf(path, "quen.io.FolderPath") != 0),
          "it is no FolderPath");
  require(operations::getFieldI64(path, "_hasParentTraversal") != 0, "the traversal flag is lost");

  operations::setFieldPtr(path, "_path", made(operations::allocString(text + "/b"), "the String"));
  const char* changed = operations::filePathFromObject(path);
  requireEqual("the changed text", changed == nullptr ? "null" : changed, text + "/b");
}

void useEntries(const std::string& text) {
  operations::cachePathEntryKind(text, QuenPathEntryKind::kRegularFile);
  require(operations::pathEntryKind("/") == QuenPathEntryKind::kDirectory, "\"/\" is no directory");
  require(operations::pathExists("/"), "\"/\" does not exist");
}

void useByteArray(const Adapter& adapter, const std::string& text) {
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  void* array = made(adapter.newByteArray(std::vector<std::uint8_t>(bytes.size())), "the Byte[]");
  std::string error;
  require(operations::writeByteArrayData(array, bytes.data(), bytes.size(), error),
          "no Byte[] is filled");
  std::vector<std::uint8_t> back;
  require(operations::readByteArrayData(array, back, error), "no Byte[] is read");
  require(back == bytes, "a Byte[] has other bytes");
}

void useList(const Adapter& adapter, const std::string& text) {
  void* list = made(operations::allocObject("ArrayList"), "the ArrayList");
  for (int i = 0; i < 10; ++i) {
    operations::addToArrayList(list, made(operations::allocString(text), "the String"));
  }
  const std::vector<void*> elements = adapter.listElements(list);
  require(elements.size() == 10, "an ArrayList has other elements");
  for (void* element : elements) requireEqual("an element", adapter.stringBytes(element), text);
}

void useException(const Adapter& adapter, const std::string& text) {
  require(operations::hasPendingError() == 0,
          "an exception is pending that this thread did not raise");
  operations::raise("IOException", text.c_str());
  require(operations::hasPendingError() != 0, "nothing is pending");
  requireRaised(adapter, text);
}

std::string nameOf(int thread, int round) {
  return "thread " + std::to_string(thread) + "/round " + std::to_string(round);
}

void requireAllOperationsAtOnce(const Adapter& adapter) {
  onThreads(adapter, kThreads, [&adapter](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const std::string text = nameOf(thread, round);
      useTexts(adapter, text);
      usePathObject(adapter, text);
      useEntries(text);
      useByteArray(adapter, text);
      useList(adapter, text);
      useException(adapter, text);
    }
  });
}

// All exceptions are pending before the first is taken.
void requireExceptionsApart(const Adapter& adapter) {
  const auto raised = std::make_shared<std::latch>(kThreads);
  onThreads(adapter, kThreads, [&adapter, raised](int thread) {
    const std::string message = nameOf(thread, 0);
    {
      const Arrival arrival(raised);
      operations::raise("IOException", message.c_str());
    }
    {
      const WithoutGlobalLock waiting(adapter);
      raised->wait();
    }
    requireRaised(adapter, message);
  });
}

void requireNotPendingElsewhere(const Adapter& adapter) {
  operations::raise("IOException", "message");
  const auto pendingElsewhere = std::make_shared<std::atomic<bool>>(false);
  onThreads(adapter, 1,
            [pendingElsewhere](int) { *pendingElsewhere = operations::hasPendingError() != 0; });
  const bool pendingHere = adapter.takeException().has_value();
  require(pendingHere, "it is not pending on its own thread");
  require(!*pendingElsewhere, "it is pending on both");
}

void requireSharedObjectRead(const Adapter& adapter) {
  void* path = made(adapter.newFolderPath("shared"), "the FolderPath");
  onThreads(adapter, kThreads, [path](int) {
    for (int round = 0; round < kRounds; ++round) {
      const char* text = operations::filePathFromObject(path);
      requireEqual("the text", text == nullptr ? "null" : text, "shared");
      require(operations::hasObjectMagic(path), "no object is seen");
      require(operations::getFieldI64(path, "_hasParentTraversal") == 0,
              "the traversal flag is set");
    }
  });
}

// Threads that raise meet at the lock of the module's registry of writers.
void requireRaisingEntryPointsReturn(const Adapter& adapter) {
  onThreads(adapter, kThreads, [&adapter](int) {
    for (int round = 0; round < kRounds; ++round) {
      {
        const WithoutGlobalLock call(adapter);
        quen_io_FileWriter__flushHandle(std::numeric_limits<std::int64_t>::max());
      }
      requireRaised(adapter, "File writer is closed");
    }
  });
}

}  // namespace

Requirements threadRequirements() {
  return {
      {"all operations serve 8 threads at once, each with objects of its own",
       requireAllOperationsAtOnce},
      {"the operations serve 8 threads at once that look at the same path object",
       requireSharedObjectRead},
      {"Quen_hasPendingError knows of the exceptions of its own thread only",
       requireNotPendingElsewhere},
      {"Quen_raise makes exceptions pending on 8 threads at once, each its own",
       requireExceptionsApart},
      {"entry points raise and return on 8 threads at once", requireRaisingEntryPointsReturn},
  };
}

}  // namespace quen::conformance
