// What explored code calls: the functions that -fsanitize=thread inserts at each access to memory
// and in place of each atomic operation, those of mutexes, and the allocator. Outside of explored
// threads all of them do what they usually do.

#include <pthread.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/interleavings/explorer.h"
#include "tests/interleavings/memory.h"
#include "tests/support/next_definition.h"

using namespace quen::interleavings;
using quen::tests::nextDefinition;

namespace {

bool acquires(int order) { return order != __ATOMIC_RELAXED && order != __ATOMIC_RELEASE; }
bool releases(int order) { return order >= __ATOMIC_RELEASE; }

void reachAtomic(Operation operation, int order, bool loads, bool stores) {
  if (!isExploring()) return;
  reach(operation);
  requireLive(operation.object);
  if (loads && acquires(order)) onAcquire(operation.object);
  if (stores && releases(order)) onRelease(operation.object);
}

template <class Value>
Value load(const volatile Value* address, int order) {
  const auto* object = const_cast<const Value*>(address);
  reachAtomic({Access::kLoad, object}, order, true, false);
  return __atomic_load_n(address, __ATOMIC_SEQ_CST);
}

template <class Value>
void store(volatile Value* address, Value value, int order) {
  reachAtomic({Access::kStore, const_cast<const Value*>(address)}, order, false, true);
  __atomic_store_n(address, value, __ATOMIC_SEQ_CST);
}

}  // namespace

#pragma GCC visibility push(default)

extern "C" {

// Accesses to memory.
void __tsan_init() {}
void __tsan_func_entry(void* /*caller*/) {}
void __tsan_func_exit() {}
void __tsan_vptr_update(void** address, void* /*value*/) { onAccess(address, 8, true); }
void __tsan_vptr_read(void** address) { onAccess(address, 8, false); }
void __tsan_read_range(void* address, std::size_t size) { onAccess(address, size, false); }
void __tsan_write_range(void* address, std::size_t size) { onAccess(address, size, true); }

#define QUEN_IO_ACCESS(size)                                                          \
  void __tsan_read##size(void* address) { onAccess(address, size, false); }           \
  void __tsan_write##size(void* address) { onAccess(address, size, true); }           \
  void __tsan_unaligned_read##size(void* address) { onAccess(address, size, false); } \
  void __tsan_unaligned_write##size(void* address) { onAccess(address, size, true); }
QUEN_IO_ACCESS(1)
QUEN_IO_ACCESS(2)
QUEN_IO_ACCESS(4)
QUEN_IO_ACCESS(8)
QUEN_IO_ACCESS(16)
#undef QUEN_IO_ACCESS

// clang, since version 15.
void* __tsan_memcpy(void* to, const void* from, std::size_t size) {
  onAccess(from, size, false);
  onAccess(to, size, true);
  return std::memcpy(to, from, size);
}

void* __tsan_memmove(void* to, const void* from, std::size_t size) {
  onAccess(from, size, false);
  onAccess(to, size, true);
  return std::memmove(to, from, size);
}

void* __tsan_memset(void* to, int byte, std::size_t size) {
  onAccess(to, size, true);
  return std::memset(to, byte, size);
}

// Atomics of 64 bits: the next handle, and the thread that is raising. Those of 32 bits are the
// counts of std::shared_ptr, of which only the arrival at zero is observed.
std::uint64_t __tsan_atomic64_load(const volatile std::uint64_t* address, int order) {
  return load(address, order);
}

void __tsan_atomic64_store(volatile std::uint64_t* address, std::uint64_t value, int order) {
  store(address, value, order);
}

std::uint64_t __tsan_atomic64_fetch_add(volatile std::uint64_t* address, std::uint64_t value,
                                        int order) {
  reachAtomic({Access::kStore, const_cast<std::uint64_t*>(address)}, order, true, true);
  return __atomic_fetch_add(address, value, __ATOMIC_SEQ_CST);
}

std::uint32_t __tsan_atomic32_load(const volatile std::uint32_t* address, int order) {
  return load(address, order);
}

void __tsan_atomic32_store(volatile std::uint32_t* address, std::uint32_t value, int order) {
  store(address, value, order);
}

std::uint32_t __tsan_atomic32_fetch_add(volatile std::uint32_t* address, std::uint32_t value,
                                        int order) {
  const auto* object = const_cast<std::uint32_t*>(address);
  reachAtomic({Access::kCount, object, static_cast<int>(value)}, order, true, true);
  return __atomic_fetch_add(address, value, __ATOMIC_SEQ_CST);
}

// Without optimization, clang keeps one of std::shared_ptr that is never reached.
void __tsan_atomic_thread_fence(int /*order*/) { std::abort(); }

// Mutexes.
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const usual = nextDefinition<int(pthread_mutex_t*)>("pthread_mutex_lock");
  return isOnThread() ? lock(mutex) : usual(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static auto* const usual = nextDefinition<int(pthread_mutex_t*)>("pthread_mutex_trylock");
  return isOnThread() ? tryLock(mutex) : usual(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static auto* const usual = nextDefinition<int(pthread_mutex_t*)>("pthread_mutex_unlock");
  return isOnThread() ? unlock(mutex) : usual(mutex);
}

pthread_t pthread_self() noexcept {
  static auto* const usual = nextDefinition<pthread_t()>("pthread_self");
  return isOnThread() ? static_cast<pthread_t>(currentThread() + 1) : usual();
}

// Time does not pass in a schedule; see isEnabled() of the explorer.
int nanosleep(const timespec* time, timespec* rest) {
  static auto* const usual = nextDefinition<int(const timespec*, timespec*)>("nanosleep");
  return isOnThread() ? 0 : usual(time, rest);
}

}  // extern "C"

void* operator new(std::size_t size) {
  if (areAllocationsTracked()) return allocate(size);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  if (isTracked(memory)) return release(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

#pragma GCC visibility pop
