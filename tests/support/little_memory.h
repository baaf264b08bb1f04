// Exhausted memory, by the kernel's own limit of the address space (setrlimit(2), RLIMIT_AS).
#pragma once

#include <malloc.h>
#include <sys/resource.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "tests/support/limits.h"

namespace quen::tests {

// Leaves this process so many bytes of memory for its lifetime: what the heap has to give is used
// up, and nothing more may be mapped. It applies to malloc(3), and so to operator new and to the C
// library alike, on all threads. Use it in a child process that has called useOneHeap().
class LittleMemory {
 public:
  // At least kLeast bytes, or none. A smaller block would go to a cache of blocks of its size.
  static constexpr std::size_t kLeast = 1'056;

  explicit LittleMemory(std::size_t bytes) {
    void* left = bytes == 0 ? nullptr : std::malloc(bytes);
    getrlimit(RLIMIT_AS, &before_);
    const rlimit limit{.rlim_cur = addressSpace(), .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_AS, &limit);
    for (std::size_t size = kLargest; size >= sizeof(Block); size /= 2) takeAll(size);
    std::free(left);
  }

  ~LittleMemory() {
    setrlimit(RLIMIT_AS, &before_);
    while (blocks_ != nullptr) {
      Block* next = blocks_->next;
      std::free(blocks_);
      blocks_ = next;
    }
  }

  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;

  // A thread's own heap reserves its address space ahead, where no limit would be noticed.
  static void useOneHeap() { mallopt(M_ARENA_MAX, 1); }

 private:
  struct Block {
    Block* next;
  };

  static constexpr std::size_t kLargest = std::size_t{64} << 20;

  void takeAll(std::size_t size) {
    while (void* taken = std::malloc(size)) blocks_ = new (taken) Block{blocks_};
  }

  Block* blocks_ = nullptr;
  rlimit before_{};
};

// Takes for its lifetime the free blocks that malloc(3) keeps for the current thread alone, which
// another one cannot use up.
class NoThreadCache {
 public:
  NoThreadCache() {
    std::size_t next = 0;
    for (std::size_t size = kSmallest; next < blocks_.size(); size += kStep) {
      for (int i = 0; i < kBlocksOfASize; ++i) blocks_[next++] = std::malloc(size);
    }
  }
  ~NoThreadCache() {
    for (void* block : blocks_) std::free(block);
  }
  NoThreadCache(const NoThreadCache&) = delete;
  NoThreadCache& operator=(const NoThreadCache&) = delete;

 private:
  // Of glibc: TCACHE_FILL_COUNT, TCACHE_MAX_BINS.
  static constexpr int kBlocksOfASize = 7;
  static constexpr std::size_t kSizes = 64;
  static constexpr std::size_t kSmallest = 24;
  static constexpr std::size_t kStep = 16;

  std::array<void*, kBlocksOfASize * kSizes> blocks_{};
};

}  // namespace quen::tests
