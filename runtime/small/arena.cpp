#include "runtime/small/arena.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace quen::small {

namespace {

constexpr std::size_t kChunkSize = std::size_t{64} * 1024;
constexpr std::size_t kSlots = kChunkSize / Arena::kSlotSize - 1;  // the first holds the header
constexpr std::size_t kSpareChunks = 64;

std::atomic<std::size_t> gLiveSlots{0};

}  // namespace

// Aligned to its size, so that masking a slot's address gives its chunk.
struct alignas(Arena::kSlotSize) Chunk {
  std::atomic<std::size_t> used{0};

  void* slot(std::size_t index) {
    return reinterpret_cast<std::byte*>(this) + (index + 1) * Arena::kSlotSize;
  }
  Object* object(std::size_t index) { return std::launder(static_cast<Object*>(slot(index))); }
};

namespace {

// A bitmap with one bit for each possible address of a chunk, in pages that are allocated when the
// first chunk in their range is. Lookups take no lock.
class ChunkMap {
 public:
  bool contains(std::uintptr_t address) const {
    const std::uintptr_t place = address / kChunkSize;
    if (place >= kPages * kPlaces) return false;
    const Page* page = pages_[place / kPlaces].load(std::memory_order_acquire);
    if (page == nullptr) return false;
    const std::uint64_t word = (*page)[place % kPlaces / 64].load(std::memory_order_acquire);
    return ((word >> (place % 64)) & 1) != 0;
  }

  // Allocates what insert() needs, which does not fail then.
  void prepareFor(const Chunk* chunk) { wordOf(chunk); }

  void insert(const Chunk* chunk) { wordOf(chunk).fetch_or(bitOf(chunk)); }
  void erase(const Chunk* chunk) { wordOf(chunk).fetch_and(~bitOf(chunk)); }

 private:
  static constexpr std::uintptr_t kPlaces = 1 << 16;  // a page covers 4 GiB
  static constexpr int kAddressBits = sizeof(std::uintptr_t) == 4 ? 32 : 48;
  static constexpr std::uintptr_t kPages = std::uintptr_t{1} << (kAddressBits - 32);
  using Page = std::array<std::atomic<std::uint64_t>, kPlaces / 64>;

  static std::uintptr_t placeOf(const Chunk* chunk) {
    return reinterpret_cast<std::uintptr_t>(chunk) / kChunkSize;
  }
  static std::uint64_t bitOf(const Chunk* chunk) {
    return std::uint64_t{1} << (placeOf(chunk) % 64);
  }

  std::atomic<std::uint64_t>& wordOf(const Chunk* chunk) {
    const std::uintptr_t place = placeOf(chunk);
    if (place >= kPages * kPlaces) std::abort();  // beyond the user address space
    std::atomic<Page*>& entry = pages_[place / kPlaces];
    if (entry.load(std::memory_order_acquire) == nullptr) {
      auto page = std::make_unique<Page>();
      Page* none = nullptr;
      if (entry.compare_exchange_strong(none, page.get())) page.release();
    }
    return (*entry.load(std::memory_order_acquire))[place % kPlaces / 64];
  }

  std::array<std::atomic<Page*>, kPages> pages_{};
};

constinit ChunkMap gChunkMap;

// A free list of chunks. It keeps a few, so that opening and closing scopes in a loop does not call
// the allocator each time.
class ChunkPool {
 public:
  Chunk* take() {
    if (Chunk* spare = takeSpare()) return spare;
    void* memory = std::aligned_alloc(kChunkSize, kChunkSize);
    if (memory == nullptr) throw std::bad_alloc();
    std::unique_ptr<Chunk, decltype(&std::free)> chunk(new (memory) Chunk, std::free);
    gChunkMap.prepareFor(chunk.get());
    return chunk.release();
  }

  void giveBack(Chunk* chunk) {
    const std::lock_guard lock(mutex_);
    if (count_ < spares_.size()) {
      spares_[count_++] = chunk;
    } else {
      std::free(chunk);
    }
  }

 private:
  Chunk* takeSpare() {
    const std::lock_guard lock(mutex_);
    return count_ == 0 ? nullptr : spares_[--count_];
  }

  std::mutex mutex_;
  // An array, because a destructor gives chunks back, which may not allocate.
  std::array<Chunk*, kSpareChunks> spares_{};
  std::size_t count_ = 0;
};

// Never destroyed: threads and static objects may still hold a scope during exit.
ChunkPool& chunkPool() {
  static auto& pool = *new ChunkPool;
  return pool;
}

Arena& processArena() {
  static auto& arena = *new Arena;
  return arena;
}

thread_local Arena* tCurrent = nullptr;

}  // namespace

Arena::~Arena() {
  for (Chunk* chunk : chunks_) {
    const std::size_t used = chunk->used.exchange(0);
    gChunkMap.erase(chunk);
    for (std::size_t i = 0; i < used; ++i) chunk->object(i)->~Object();
    gLiveSlots.fetch_sub(used);
    chunkPool().giveBack(chunk);
  }
}

void* Arena::nextSlot() {
  if (chunks_.empty() || chunks_.back()->used.load(std::memory_order_relaxed) == kSlots) {
    chunks_.reserve(chunks_.size() + 1);
    chunks_.push_back(chunkPool().take());
    gChunkMap.insert(chunks_.back());
  }
  Chunk* chunk = chunks_.back();
  return chunk->slot(chunk->used.load(std::memory_order_relaxed));
}

// Published only after construction, so that no other thread sees a half-constructed object.
void Arena::publishSlot() {
  chunks_.back()->used.fetch_add(1, std::memory_order_release);
  gLiveSlots.fetch_add(1, std::memory_order_relaxed);
}

Arena& Arena::current() { return tCurrent != nullptr ? *tCurrent : processArena(); }

Arena* Arena::enter(Arena* arena) { return std::exchange(tCurrent, arena); }

Object* asObject(void* pointer) {
  const auto address = reinterpret_cast<std::uintptr_t>(pointer);
  if (address % Arena::kSlotSize != 0 || !gChunkMap.contains(address)) return nullptr;

  auto* chunk = reinterpret_cast<Chunk*>(address - address % kChunkSize);
  const std::size_t slot = address % kChunkSize / Arena::kSlotSize;
  if (slot == 0 || slot > chunk->used.load(std::memory_order_acquire)) return nullptr;
  return chunk->object(slot - 1);
}

std::size_t liveSlots() { return gLiveSlots.load(std::memory_order_relaxed); }

}  // namespace quen::small
