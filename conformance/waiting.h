// Threads of the checks, and waiting for them with respect for a global lock of the runtime.
// Private to the kit.
#pragma once

#include <chrono>
#include <functional>
#include <latch>
#include <memory>

#include "quen/io/conformance.h"

namespace quen::conformance {

// Calls beforeWaiting and afterWaiting: around waits, and around entry points.
class WithoutGlobalLock {
 public:
  explicit WithoutGlobalLock(const Adapter& adapter) : adapter_(adapter) {
    adapter_.beforeWaiting();
  }
  ~WithoutGlobalLock() { adapter_.afterWaiting(); }
  WithoutGlobalLock(const WithoutGlobalLock&) = delete;
  WithoutGlobalLock& operator=(const WithoutGlobalLock&) = delete;

 private:
  const Adapter& adapter_;
};

// A thread that does not come back by then counts as hanging. Set for each requirement.
void setDeadline(std::chrono::steady_clock::time_point deadline);

// Runs the body on so many threads, released at the same time, and throws what it throws on one of
// them. Throws NeverReturned if one hangs; the body may then still run, so it owns what it
// captures. Throws Skipped if the runtime has one thread only.
void onThreads(const Adapter& adapter, int count, const std::function<void(int thread)>& body);

// Runs the body on a thread, or on this one if the runtime has one thread only.
void onOneThread(const Adapter& adapter, const std::function<void()>& body);

// Where threads of onThreads() wait for each other.
using Meeting = std::shared_ptr<std::latch>;

// Counts down even if the check throws; otherwise the other threads would wait forever.
class Arrival {
 public:
  explicit Arrival(Meeting meeting) : meeting_(std::move(meeting)) {}
  ~Arrival() { meeting_->count_down(); }
  Arrival(const Arrival&) = delete;
  Arrival& operator=(const Arrival&) = delete;

 private:
  Meeting meeting_;
};

}  // namespace quen::conformance
