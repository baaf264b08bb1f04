// The operations on several threads at once.

#include <array>
#include <filesystem>
#include <functional>
#include <future>
#include <latch>
#include <thread>

#include "conformance/requirement.h"
#include "quen/io/operations.h"

namespace quen::conformance {

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 200;

// Runs the body on eight threads, which all begin at the same time, and fails when it fails on one.
void onThreads(const Adapter& adapter, const std::function<void(int thread)>& body) {
  std::latch begin(kThreads);
  std::array<std::future<void>, kThreads> outcomes;
  for (int i = 0; i < kThreads; ++i) {
    outcomes[static_cast<std::size_t>(i)] = std::async(std::launch::async, [&, i] {
      begin.arrive_and_wait();
      const ThreadOfAdapter thread(adapter);
      body(i);
    });
  }
  for (const std::future<void>& outcome : outcomes) outcome.wait();
  for (std::future<void>& outcome : outcomes) outcome.get();
}

void useTexts(const Adapter& adapter, const std::string& text) {
  const std::filesystem::path path = Quen_runtimeFsPath(text.c_str());
  requireEqual("the path", path.native(), text);
  requireEqual("the visible text", Quen_visiblePathString(path, false), text);
  require(!Quen_pathHasExplicitWindowsRoot(text.c_str()), "a Windows root is found");
  void* pathString = made(Quen_allocPathString(path, false), "the String of a path");
  requireEqual("the String of a path", adapter.stringBytes(pathString), text);
}

void usePathObject(const Adapter& adapter, const std::string& text) {
  void* path = made(Quen_allocTypedPathObjectFromPath(text, false, false, true), "the path object");
  const char* borrowed = Quen_filePathFromObject(path);
  require(borrowed != nullptr, "the text is null");
  requireEqual("the text", borrowed, text);
  require(hasObjectMagic(path), "no object is seen");
  require(adapter.isFolderPath(path) && (Quen_isInstanceOf(path, "FolderPath") != 0 ||
                                         Quen_isInstanceOf(path, "quen.io.FolderPath") != 0),
          "it is no FolderPath");
  require(Quen_getField_i64(path, "_hasParentTraversal") != 0, "the traversal flag is lost");

  Quen_setField_ptr(path, "_path", made(Quen_allocString(text + "/b"), "the String"));
  const char* changed = Quen_filePathFromObject(path);
  requireEqual("the changed text", changed == nullptr ? "null" : changed, text + "/b");
}

void useEntries(const std::string& text) {
  Quen_cachePathEntryKind(text, QuenPathEntryKind::kRegularFile);
  require(Quen_pathEntryKind("/") == QuenPathEntryKind::kDirectory, "\"/\" is no directory");
  require(Quen_pathExists("/"), "\"/\" does not exist");
}

void useByteArray(const Adapter& adapter, const std::string& text) {
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  void* array = made(adapter.newByteArray(std::vector<std::uint8_t>(bytes.size())), "the Byte[]");
  std::string error;
  require(Quen_writeByteArrayData(array, bytes.data(), bytes.size(), error), "no Byte[] is filled");
  std::vector<std::uint8_t> back;
  require(Quen_readByteArrayData(array, back, error), "no Byte[] is read");
  require(back == bytes, "a Byte[] has other bytes");
}

void useList(const Adapter& adapter, const std::string& text) {
  void* list = made(Quen_allocObject("ArrayList"), "the ArrayList");
  for (int i = 0; i < 10; ++i) {
    quen_collections_ArrayList_add(list, made(Quen_allocString(text), "the String"));
  }
  const std::vector<void*> elements = adapter.listElements(list);
  require(elements.size() == 10, "an ArrayList has other elements");
  for (void* element : elements) requireEqual("an element", adapter.stringBytes(element), text);
}

void useException(const Adapter& adapter, const std::string& text) {
  require(Quen_hasPendingError() == 0, "an exception is pending that this thread did not raise");
  Quen_raise("IOException", text.c_str());
  require(Quen_hasPendingError() != 0, "nothing is pending");
  const std::optional<Exception> taken = adapter.takeException();
  requireEqual("the message", taken ? taken->message : "none", text);
}

std::string nameOf(int thread, int round) {
  return "thread " + std::to_string(thread) + "/round " + std::to_string(round);
}

void requireAllOperationsAtOnce(const Adapter& adapter) {
  onThreads(adapter, [&](int thread) {
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

// Counts down whatever happens, or the other threads would wait for ever.
class Arrival {
 public:
  explicit Arrival(std::latch& latch) : latch_(latch) {}
  ~Arrival() { latch_.count_down(); }
  Arrival(const Arrival&) = delete;
  Arrival& operator=(const Arrival&) = delete;

 private:
  std::latch& latch_;
};

// All are pending before the first is taken.
void requireExceptionsApart(const Adapter& adapter) {
  std::latch raised(kThreads);
  onThreads(adapter, [&](int thread) {
    const std::string message = nameOf(thread, 0);
    {
      const Arrival arrival(raised);
      Quen_raise("IOException", message.c_str());
    }
    raised.wait();
    const std::optional<Exception> taken = adapter.takeException();
    requireEqual("the message", taken ? taken->message : "none", message);
  });
}

void requireNotPendingElsewhere(const Adapter& adapter) {
  Quen_raise("IOException", "message");
  const bool pendingElsewhere = std::async(std::launch::async, [&adapter] {
                                  const ThreadOfAdapter thread(adapter);
                                  return Quen_hasPendingError() != 0;
                                }).get();
  const bool pendingHere = adapter.takeException().has_value();
  require(pendingHere, "it is not pending on its own thread");
  require(!pendingElsewhere, "it is pending on both");
}

void requireSharedObjectRead(const Adapter& adapter) {
  void* path = made(adapter.newFolderPath("shared"), "the FolderPath");
  onThreads(adapter, [&](int) {
    for (int round = 0; round < kRounds; ++round) {
      const char* text = Quen_filePathFromObject(path);
      requireEqual("the text", text == nullptr ? "null" : text, "shared");
      require(hasObjectMagic(path), "no object is seen");
      require(Quen_getField_i64(path, "_hasParentTraversal") == 0, "the traversal flag is set");
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
  };
}

}  // namespace quen::conformance
