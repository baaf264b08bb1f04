#include "tests/support/lock_graph.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <map>

namespace {

using MutexFunction = int (*)(pthread_mutex_t*);

// The wait-for graph: a cycle of threads, each of which waits for a mutex that the next one owns,
// is a deadlock. The thread that closes the cycle finds all other edges recorded, because a thread
// records its ownership before it waits for another mutex.
class LockGraph {
 public:
  void own(pthread_mutex_t* mutex) {
    const Guard guard(spin_);
    waits_.erase(pthread_self());
    owners_[mutex] = pthread_self();
  }

  void release(pthread_mutex_t* mutex) {
    const Guard guard(spin_);
    owners_.erase(mutex);
  }

  // The number of threads in the cycle that this thread closes by waiting; 0 if there is none.
  int wait(pthread_mutex_t* mutex) {
    const Guard guard(spin_);
    waits_[pthread_self()] = mutex;
    int threads = 0;
    for (pthread_mutex_t* next = mutex; next != nullptr;) {
      const auto owner = owners_.find(next);
      if (owner == owners_.end()) return 0;
      ++threads;
      if (pthread_equal(owner->second, pthread_self()) != 0) return threads;
      const auto waiting = waits_.find(owner->second);
      next = waiting == waits_.end() ? nullptr : waiting->second;
    }
    return 0;
  }

 private:
  // A spin lock, because mutexes are what is being replaced.
  class Guard {
   public:
    explicit Guard(std::atomic_flag& flag) : flag_(flag) {
      while (flag_.test_and_set()) continue;
    }
    ~Guard() { flag_.clear(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    std::atomic_flag& flag_;
  };

  std::atomic_flag spin_;
  std::map<pthread_mutex_t*, pthread_t> owners_;
  std::map<pthread_t, pthread_mutex_t*> waits_;
};

// Null until endAtDeadlock() was called. Never destroyed, because threads may still run at exit.
std::atomic<LockGraph*> gGraph{nullptr};

MutexFunction original(const char* name) {
  return reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace quen::tests {

void endAtDeadlock() { gGraph = new LockGraph; }

}  // namespace quen::tests

extern "C" {

__attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static const MutexFunction lock = original("pthread_mutex_lock");
  LockGraph* graph = gGraph;
  if (graph == nullptr) return lock(mutex);

  if (pthread_mutex_trylock(mutex) != 0) {
    if (const int threads = graph->wait(mutex); threads > 0) {
      static_cast<void>(std::fprintf(stderr, "deadlock of %d threads\n", threads));
      _exit(quen::tests::kDeadlock);
    }
    lock(mutex);
  }
  graph->own(mutex);
  return 0;
}

__attribute__((visibility("default"))) int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static const MutexFunction unlock = original("pthread_mutex_unlock");
  if (LockGraph* graph = gGraph) graph->release(mutex);
  return unlock(mutex);
}

}  // extern "C"
