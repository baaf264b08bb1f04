// Exceptions: Quen_raise makes one pending, unchanged, until it is taken.

#include <filesystem>
#include <limits>
#include <utility>

#include "conformance/operations.h"
#include "conformance/requirement.h"
#include "conformance/waiting.h"
#include "quen/io/entry_points.h"

namespace quen::conformance {

namespace {

Exception take(const Adapter& adapter) {
  std::optional<Exception> exception = adapter.takeException();
  require(exception.has_value(), "nothing is pending");
  return *std::move(exception);
}

void requireKept(const Adapter& adapter, const std::string& exceptionClass,
                 const std::string& message) {
  operations::raise(exceptionClass.c_str(), message.c_str());
  const Exception exception = take(adapter);
  requireEqual("the class", exception.className, exceptionClass);
  requireEqual("the message", exception.message, message);
}

void requireMessageCopied(const Adapter& adapter) {
  std::string message(100, 'a');
  operations::raise("IOException", message.c_str());
  message.assign(100, 'b');
  requireEqual("the message", take(adapter).message, std::string(100, 'a'));
}

void requirePendingUntilTaken(const Adapter& adapter) {
  operations::raise("IOException", "message");
  require(operations::hasPendingError() != 0, "it is not pending at first");
  operations::allocString("a");
  operations::allocObject("ArrayList");
  require(operations::hasPendingError() != 0, "it is not pending after other operations");
  take(adapter);
}

// After a failure an entry point creates its result while the exception is pending.
void requireObjectsMadeMeanwhile(const Adapter& adapter) {
  operations::raise("IOException", "message");
  void* list = made(operations::allocObject("ArrayList"), "the ArrayList");
  operations::addToArrayList(list, made(operations::allocString("a"), "the String"));
  take(adapter);
  const std::vector<void*> elements = adapter.listElements(list);
  require(elements.size() == 1, std::to_string(elements.size()) + " elements, not 1");
  requireEqual("the element", adapter.stringBytes(made(elements[0], "the element")), "a");
}

// Looking up an unknown handle raises while the module holds the mutex of its registry. A runtime
// that calls the module from Quen_raise therefore deadlocks on that mutex.
void requireNoCallBack(const Adapter& adapter) {
  onOneThread(adapter, [&adapter] {
    {
      const WithoutGlobalLock call(adapter);
      quen_io_FileWriter__flushHandle(std::numeric_limits<std::int64_t>::max());
    }
    requireEqual("the message", take(adapter).message, "File writer is closed");
  });
}

// A failing writer raises while the module holds its mutex.
void requireNoCallBackOfAWriter(const Adapter& adapter) {
  constexpr const char* kFullDevice = "/dev/full";
  if (!std::filesystem::exists(kFullDevice)) throw Skipped("there is no /dev/full");
  onOneThread(adapter, [&adapter] {
    {
      const WithoutGlobalLock call(adapter);
      const std::int64_t handle = quen_io_FileWriter__openPath(kFullDevice, 0);
      quen_io_FileWriter__writeHandle(handle, "text");
      quen_io_FileWriter__flushHandle(handle);
    }
    requireEqual("the message", take(adapter).message, "Failed to flush file");
  });
}

}  // namespace

Requirements exceptionRequirements() {
  return {
      {"Quen_hasPendingError gives 0 when nothing was raised",
       [](const Adapter&) { require(operations::hasPendingError() == 0, "another number"); }},

      {"Quen_raise returns, and the exception is pending until it is taken",
       requirePendingUntilTaken},

      {"Quen_hasPendingError gives 0 after the exception was taken",
       [](const Adapter& adapter) {
         operations::raise("IOException", "message");
         take(adapter);
         require(operations::hasPendingError() == 0, "another number");
       }},

      {"Quen_raise keeps the class and the message of an IOException",
       [](const Adapter& adapter) { requireKept(adapter, "IOException", "Cannot open file"); }},

      {"Quen_raise keeps the class and the message of a TypeError",
       [](const Adapter& adapter) { requireKept(adapter, "TypeError", "Expected Byte[]"); }},

      {"Quen_raise keeps a message of UTF-8, percent signs and line ends",
       [](const Adapter& adapter) {
         requireKept(adapter, "IOException", "100%s %n %% h\xC3\xA9llo\n\t{0} $1 \\n");
       }},

      {"Quen_raise keeps the empty message",
       [](const Adapter& adapter) { requireKept(adapter, "IOException", ""); }},

      {"Quen_raise keeps a message of 64 KiB",
       [](const Adapter& adapter) {
         requireKept(adapter, "IOException", std::string(65536, 'x'));
       }},

      {"Quen_raise copies the message", requireMessageCopied},

      {"Quen_raise leaves one of the two pending when another was pending",
       [](const Adapter& adapter) {
         operations::raise("IOException", "first");
         operations::raise("TypeError", "second");
         require(operations::hasPendingError() != 0, "nothing is pending");
         const Exception exception = take(adapter);
         const std::string both = exception.className + ' ' + exception.message;
         require(both == "IOException first" || both == "TypeError second", shown(both));
       }},

      {"the operations make objects while an exception is pending", requireObjectsMadeMeanwhile},

      {"Quen_raise calls nothing of the module, which may hold a lock meanwhile",
       requireNoCallBack},

      {"Quen_raise does nothing with a writer that failed, which the module has locked",
       requireNoCallBackOfAWriter},
  };
}

}  // namespace quen::conformance
