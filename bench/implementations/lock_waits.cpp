// Preloaded into an implementation, measures how long its threads wait for locks. A lock that is
// free is taken at once, without a look at the clock; malloc's own locks are not seen.

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>

#include "bench/implementations/implementation.h"

namespace {

std::atomic<std::uint64_t> gNanoseconds{0};

using Lock = int (*)(pthread_mutex_t*);

}  // namespace

std::uint64_t bench_nanosecondsWaited() { return gNanoseconds.load(); }

extern "C" [[gnu::visibility("default")]] int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  using Clock = std::chrono::steady_clock;
  static const auto lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  if (pthread_mutex_trylock(mutex) == 0) return 0;

  const Clock::time_point start = Clock::now();
  const int result = lock(mutex);
  const std::chrono::nanoseconds waited = Clock::now() - start;
  gNanoseconds.fetch_add(static_cast<std::uint64_t>(waited.count()));
  return result;
}
