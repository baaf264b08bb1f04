// Where objects live: in slots of chunks, chunks in arenas, an arena a scope.
//
// Whether any pointer is an object is answered from its address alone, never from what it points
// at: no raw text can pass for an object, whatever its bytes, and none of them is read.
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

  // The arena of this thread's innermost scope, else the one that lives as long as the process.
  static Arena& current();

  // Makes an arena the current one of this thread and returns the one before; both may be null.
  static Arena* enter(Arena* arena);

  static constexpr std::size_t kSlotSize = 64;

 private:
  void* nextSlot();
  void publishSlot();

  std::mutex mutex_;
  std::vector<Chunk*> chunks_;
};

// How many objects are alive in all arenas.
std::size_t liveSlots();

}  // namespace quen::small
