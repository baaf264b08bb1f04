// The open writers by their handles. Private to writers/.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "conventions.h"

namespace quen::io {

// A map with its own lock, which is held to find, insert or remove an entry, and while "File writer
// is closed" is raised; no I/O is done and no writer's lock is taken under it. Callers share the
// ownership of a writer while they use it, so that a close on another thread does not destroy it.
//
// Exit and fork wait for the lock for a limited time only. The mutex type is a template parameter
// so that tests can observe the lock.
template <class Writer, class Mutex = std::mutex>
class FileWriterRegistry {
 public:
  using Writers = std::unordered_map<std::int64_t, std::shared_ptr<Writer>>;

  // Returns the writer's handle. Handles count from 1 and are never reused.
  std::int64_t add(std::shared_ptr<Writer> writer) {
    const std::int64_t handle = nextHandle_.fetch_add(1);
    const std::lock_guard lock(mutex_);
    writers_.try_emplace(handle, std::move(writer));
    return handle;
  }

  // Null after raising IOException "File writer is closed". 0, which a failed open returns, and
  // negative numbers are never handles and are rejected without taking the lock.
  std::shared_ptr<Writer> findOrRaise(std::int64_t handle) {
    if (handle < 1) return raiseClosed();

    const std::lock_guard lock(mutex_);
    const auto entry = writers_.find(handle);
    if (entry != writers_.end()) return entry->second;

    const Raising raising(raisingThread_);
    return raiseClosed();
  }

  // Removes the handle and returns its writer; null if the handle is unknown.
  std::shared_ptr<Writer> remove(std::int64_t handle) {
    if (handle < 1) return nullptr;

    const std::lock_guard lock(mutex_);
    const auto entry = writers_.find(handle);
    if (entry == writers_.end()) return nullptr;

    std::shared_ptr<Writer> writer = std::move(entry->second);
    writers_.erase(entry);
    return writer;
  }

  // Removes and returns all writers at process exit; none if another thread does not release the
  // lock in time. If the runtime exits from Quen_raise, this thread may already hold the lock.
  Writers takeAll() {
    Writers all;
    if (isRaising()) {
      all.swap(writers_);
    } else if (lockSoon()) {
      all.swap(writers_);
      mutex_.unlock();
    }
    return all;
  }

  // fork copies only the calling thread. The lock is held across it so that the child inherits
  // neither a mutex locked by a thread that does not exist there, nor a map in the middle of a
  // change.
  void beforeFork() { tLockedForFork = !isRaising() && lockSoon(); }

  void afterForkInParent() {
    if (std::exchange(tLockedForFork, false)) mutex_.unlock();
  }

  // If a thread was raising under the lock, it does not exist in the child, but the map is
  // consistent. This thread is recorded in its place, so that takeAll() at exit does not wait for
  // the lock.
  void afterForkInChild() {
    if (std::exchange(tLockedForFork, false)) {
      mutex_.unlock();
    } else if (raisingThread_.load() != std::thread::id()) {
      raisingThread_ = std::this_thread::get_id();
    }
  }

 private:
  // Records for a scope the thread that calls Quen_raise under the lock.
  class Raising {
   public:
    explicit Raising(std::atomic<std::thread::id>& thread) : thread_(thread) {
      thread_.store(std::this_thread::get_id());
    }
    ~Raising() { thread_ = std::thread::id(); }
    Raising(const Raising&) = delete;
    Raising& operator=(const Raising&) = delete;

   private:
    std::atomic<std::thread::id>& thread_;
  };

  static std::shared_ptr<Writer> raiseClosed() {
    raiseIOException("File writer is closed");
    return nullptr;
  }

  // Whether this thread is inside Quen_raise under the lock.
  bool isRaising() const { return raisingThread_.load() == std::this_thread::get_id(); }

  // Tries to take the lock for a limited time. It is held for less than a microsecond, unless the
  // runtime does not return from Quen_raise.
  bool lockSoon() {
    constexpr int kTries = 1000;
    constexpr std::chrono::microseconds kPause{100};
    for (int i = 0; i < kTries; ++i) {
      if (mutex_.try_lock()) return true;
      std::this_thread::sleep_for(kPause);
    }
    return false;
  }

  static inline thread_local bool tLockedForFork = false;

  Mutex mutex_;  // guards writers_
  Writers writers_;
  std::atomic<std::thread::id> raisingThread_;
  std::atomic<std::int64_t> nextHandle_{1};
};

}  // namespace quen::io
