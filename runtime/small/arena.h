// The allocator of objects: each scope has an arena, an arena consists of chunks, a chunk of slots.
//
// Whether a pointer refers to an object is decided by its address alone. The memory it points to is
// not read, so no C string can be mistaken for an object, whatever its bytes.
#pragma once

#include <cstddef>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "runtime/small/objects.h"

namespace quen::small {

struct Chunk;

// A growing set of objects that are destroyed together. Any thread may add to it.
class Arena {
 public:
  Arena() = default;
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  template <class T, class... Arguments>
  T* make(Arguments&&... arguments) {
    static_assert(sizeof(T) <= kSlotSize);
    static_assert(alignof(T) <= kSlotSize);
    const std::lock_guard lock(mutex_);
    T* object = new (nextSlot()) T(std::forward<Arguments>(arguments)...);
    publishSlot();
    return object;
  }

  // The arena of this thread's innermost scope, or the arena of the process outside of all scopes.
  static Arena& current();

  // Sets this thread's current arena and returns the previous one; both may be null.
  static Arena* enter(Arena* arena);

  static constexpr std::size_t kSlotSize = 64;

 private:
  void* nextSlot();
  void publishSlot();

  std::mutex mutex_;
  std::vector<Chunk*> chunks_;
};

// The number of live objects in all arenas.
std::size_t liveSlots();

}  // namespace quen::small
