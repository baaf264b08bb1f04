#include "conformance/waiting.h"

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<Clock::time_point> gDeadline{Clock::time_point::max()};

// Whether an adapter without beforeWaiting was waited for.
std::atomic<bool> gHasNoHooks{false};

class ThreadOfAdapter {
 public:
  explicit ThreadOfAdapter(const Adapter& adapter) : adapter_(adapter) { adapter_.enterThread(); }
  ~ThreadOfAdapter() { adapter_.leaveThread(); }
  ThreadOfAdapter(const ThreadOfAdapter&) = delete;
  ThreadOfAdapter& operator=(const ThreadOfAdapter&) = delete;

 private:
  const Adapter& adapter_;
};

// What the threads use, and keep if this call does not wait for them any longer.
struct Shared {
  Shared(int count, std::function<void(int)> work) : begin(count), body(std::move(work)) {}

  std::latch begin;
  std::function<void(int)> body;
};

struct Threads {
  std::vector<std::thread> threads;
  std::vector<std::future<void>> outcomes;
};

Threads start(const Adapter& adapter, int count, const std::function<void(int)>& body) {
  Threads started;
  const auto shared = std::make_shared<Shared>(count, body);
  for (int i = 0; i < count; ++i) {
    std::packaged_task<void()> work([&adapter, shared, i] {
      shared->begin.arrive_and_wait();
      const ThreadOfAdapter thread(adapter);
      shared->body(i);
    });
    started.outcomes.push_back(work.get_future());
    started.threads.emplace_back(std::move(work));
  }
  return started;
}

[[noreturn]] void giveUp(Threads& threads, int missing) {
  for (std::thread& thread : threads.threads) thread.detach();
  std::string instead = std::to_string(missing) + " of " + std::to_string(threads.threads.size()) +
                        " threads did not come back";
  if (gHasNoHooks) {
    instead += "; if the caller of the kit holds a global lock, the adapter needs beforeWaiting";
  }
  throw NeverReturned(instead);
}

// A packaged task whose thread ends by pthread_exit breaks its promise.
void getOrThrow(std::future<void>& outcome) {
  try {
    outcome.get();
  } catch (const std::future_error&) {
    throw NotMet("an operation ended its thread");
  }
}

}  // namespace

void Adapter::beforeWaiting() const { gHasNoHooks = true; }

void Adapter::afterWaiting() const {}

void setDeadline(Clock::time_point deadline) { gDeadline = deadline; }

// The global lock is not taken again after a failure, because a thread that hangs may hold it.
void onThreads(const Adapter& adapter, int count, const std::function<void(int thread)>& body) {
  if (adapter.oneThreadOnly()) throw Skipped("the runtime has one thread only");

  Threads threads = start(adapter, count, body);
  int missing = 0;
  adapter.beforeWaiting();
  for (const std::future<void>& outcome : threads.outcomes) {
    if (outcome.wait_until(gDeadline.load()) != std::future_status::ready) ++missing;
  }
  if (missing > 0) giveUp(threads, missing);
  for (std::thread& thread : threads.threads) thread.join();
  adapter.afterWaiting();
  for (std::future<void>& outcome : threads.outcomes) getOrThrow(outcome);
}

void onOneThread(const Adapter& adapter, const std::function<void()>& body) {
  if (adapter.oneThreadOnly()) return body();
  onThreads(adapter, 1, [body](int) { body(); });
}

}  // namespace quen::conformance
