// Exceptions: one becomes pending, stays so until it is taken, and is what was raised.

#include <chrono>
#include <future>
#include <limits>
#include <thread>
#include <utility>

#include "conformance/requirement.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace quen::conformance {

namespace {

// Only whoever waits for ever takes as long.
constexpr std::chrono::seconds kPatience{10};

Exception take(const Adapter& adapter) {
  std::optional<Exception> exception = adapter.takeException();
  require(exception.has_value(), "nothing is pending");
  return *std::move(exception);
}

void requireKept(const Adapter& adapter, const std::string& exceptionClass,
                 const std::string& message) {
  Quen_raise(exceptionClass.c_str(), message.c_str());
  const Exception exception = take(adapter);
  requireEqual("the class", exception.className, exceptionClass);
  requireEqual("the message", exception.message, message);
}

void requireMessageCopied(const Adapter& adapter) {
  std::string message(100, 'a');
  Quen_raise("IOException", message.c_str());
  message.assign(100, 'b');
  requireEqual("the message", take(adapter).message, std::string(100, 'a'));
}

void requirePendingUntilTaken(const Adapter& adapter) {
  Quen_raise("IOException", "message");
  require(Quen_hasPendingError() != 0, "it is not pending at first");
  Quen_allocString("a");
  Quen_allocObject("ArrayList");
  require(Quen_hasPendingError() != 0, "it is not pending after other operations");
  take(adapter);
}

// Whatever an entry point returns after a failure is made while the exception is pending.
void requireObjectsMadeMeanwhile(const Adapter& adapter) {
  Quen_raise("IOException", "message");
  void* list = made(Quen_allocObject("ArrayList"), "the ArrayList");
  quen_collections_ArrayList_add(list, made(Quen_allocString("a"), "the String"));
  take(adapter);
  const std::vector<void*> elements = adapter.listElements(list);
  require(elements.size() == 1, std::to_string(elements.size()) + " elements, not 1");
  requireEqual("the element", adapter.stringBytes(made(elements[0], "the element")), "a");
}

// The module's look-up of a handle raises while it holds the lock of all handles. Whoever calls a
// function of the module from Quen_raise waits for that lock, on the thread that holds it.
void requireNoCallBack(const Adapter& adapter) {
  std::packaged_task<Exception()> lookUp([&adapter] {
    const ThreadOfAdapter thread(adapter);
    quen_io_FileWriter__flushHandle(std::numeric_limits<std::int64_t>::max());
    return take(adapter);
  });
  std::future<Exception> raised = lookUp.get_future();
  std::thread raising(std::move(lookUp));

  if (raised.wait_for(kPatience) != std::future_status::ready) {
    raising.detach();
    throw NeverReturned("the thread that raised never came back");
  }
  raising.join();
  requireEqual("the message", raised.get().message, "File writer is closed");
}

}  // namespace

Requirements exceptionRequirements() {
  return {
      {"Quen_hasPendingError gives 0 when nothing was raised",
       [](const Adapter&) { require(Quen_hasPendingError() == 0, "another number"); }},

      {"Quen_raise returns, and the exception is pending until it is taken",
       requirePendingUntilTaken},

      {"Quen_hasPendingError gives 0 after the exception was taken",
       [](const Adapter& adapter) {
         Quen_raise("IOException", "message");
         take(adapter);
         require(Quen_hasPendingError() == 0, "another number");
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
         Quen_raise("IOException", "first");
         Quen_raise("TypeError", "second");
         require(Quen_hasPendingError() != 0, "nothing is pending");
         const Exception exception = take(adapter);
         const std::string both = exception.className + ' ' + exception.message;
         require(both == "IOException first" || both == "TypeError second", shown(both));
       }},

      {"the operations make objects while an exception is pending", requireObjectsMadeMeanwhile},

      {"Quen_raise calls nothing of the module, which may hold a lock meanwhile",
       requireNoCallBack},
  };
}

}  // namespace quen::conformance
