#include "tests/interleavings/memory.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>

#include "tests/interleavings/explorer.h"

namespace quen::interleavings {

namespace {

using Clock = std::array<std::uint16_t, kMostThreads>;

constexpr std::size_t kMostBytes = std::size_t{1} << 18;
constexpr std::size_t kMostWatched = 512;
constexpr std::size_t kWord = 8;
constexpr std::size_t kWordsOfLine = 64;
constexpr std::size_t kMostObjects = 64;
constexpr std::size_t kMostWords = (kMostBytes + kMostWatched) / kWord;

// The accesses to a word of memory, by the clocks of the threads that made them.
struct Word {
  std::uint32_t schedule = 0;  // the accesses of an earlier schedule do not count
  Clock written{};
  Clock read{};
};

struct Block {
  std::size_t size;
  bool live;
};

constexpr std::size_t kHeader = 16;
static_assert(sizeof(Block) <= kHeader);

alignas(kHeader) std::array<char, kMostBytes> gBytes;
std::array<Word, kMostWords> gWords;
// The last schedule with an access to a line of words.
std::array<std::uint32_t, kMostWords / kWordsOfLine + 1> gLines;
std::array<bool, kMostWords> gFreed;
std::size_t gUsed = 0;
std::size_t gLive = 0;
std::uint32_t gSchedule = 1;
bool gTrack = false;

const char* gWatched = nullptr;
std::size_t gWatchedSize = 0;

// The vector clock of each thread, and those of the objects that were released.
std::array<Clock, kMostThreads> gThreads;
struct Released {
  const void* object;
  Clock clock;
};
std::array<Released, kMostObjects> gReleased;
std::size_t gReleasedCount = 0;

Clock& clockOf(const void* object) {
  for (std::size_t i = 0; i < gReleasedCount; ++i) {
    if (gReleased[i].object == object) return gReleased[i].clock;
  }
  if (gReleasedCount == kMostObjects) fail("too many objects for the explorer");
  gReleased[gReleasedCount] = {object, {}};
  return gReleased[gReleasedCount++].clock;
}

void join(Clock& into, const Clock& other) {
  for (std::size_t i = 0; i < into.size(); ++i) into[i] = std::max(into[i], other[i]);
}

// The index of a word; kMostWords for memory that is not looked at.
std::size_t wordAt(const char* address) {
  if (isTracked(address)) return static_cast<std::size_t>(address - gBytes.data()) / kWord;
  if (address >= gWatched && address < gWatched + gWatchedSize) {
    return (kMostBytes + static_cast<std::size_t>(address - gWatched)) / kWord;
  }
  return kMostWords;
}

// Whether all these accesses happen before what the thread does now.
bool isOrdered(const Clock& accesses, const Clock& thread) {
  for (std::size_t i = 0; i < accesses.size(); ++i) {
    if (accesses[i] > thread[i]) return false;
  }
  return true;
}

void onWord(std::size_t index, bool writes) {
  Word& word = gWords[index];
  if (word.schedule != gSchedule) word = {.schedule = gSchedule};
  gLines[index / kWordsOfLine] = gSchedule;
  if (gFreed[index]) fail("use of freed memory");
  const auto thread = static_cast<std::size_t>(currentThread());
  const Clock& now = gThreads[thread];
  if (!isOrdered(word.written, now) || (writes && !isOrdered(word.read, now))) fail("data race");
  (writes ? word.written : word.read)[thread] = now[thread];
}

}  // namespace

bool isTracked(const void* address) {
  const auto* byte = static_cast<const char*>(address);
  return byte >= gBytes.data() && byte < gBytes.data() + kMostBytes;
}

void trackAllocations(bool track) { gTrack = track; }
bool areAllocationsTracked() { return gTrack; }

void* allocate(std::size_t size) {
  const std::size_t rounded = (size + kHeader - 1) / kHeader * kHeader;
  if (gUsed + kHeader + rounded > kMostBytes) fail("too little memory for the explorer");
  char* block = gBytes.data() + gUsed;
  new (block) Block{rounded, true};
  gUsed += kHeader + rounded;
  ++gLive;
  return block + kHeader;
}

// Counts as a write of every word that was accessed, so that an access on another thread that is
// not ordered is a data race.
void release(void* address) {
  auto* bytes = static_cast<char*>(address);
  auto* block = reinterpret_cast<Block*>(bytes - kHeader);
  if (!block->live) fail("memory was freed twice");
  block->live = false;
  --gLive;
  const std::size_t first = wordAt(bytes);
  const std::size_t end = first + block->size / kWord;
  for (std::size_t index = first; index < end && isExploring(); ++index) {
    if (gLines[index / kWordsOfLine] != gSchedule) {
      index |= kWordsOfLine - 1;  // the last of its line
    } else if (gWords[index].schedule == gSchedule) {
      onWord(index, true);
    }
  }
  std::fill_n(gFreed.begin() + static_cast<std::ptrdiff_t>(first), end - first, true);
}

void forgetMemory() {
  std::fill_n(gFreed.begin(), gUsed / kWord, false);
  gUsed = 0;
  gLive = 0;
  gReleasedCount = 0;
  ++gSchedule;
  for (std::size_t thread = 0; thread < gThreads.size(); ++thread) {
    gThreads[thread] = {};
    gThreads[thread][thread] = 1;
  }
}

std::size_t liveBlocks() { return gLive; }

void watch(const void* object, std::size_t size) {
  if (size > kMostWatched) fail("too large an object for the explorer");
  gWatched = static_cast<const char*>(object);
  gWatchedSize = size;
}

void onAccess(const void* address, std::size_t size, bool writes) {
  if (!isExploring()) return;
  const auto* bytes = static_cast<const char*>(address);
  for (std::size_t offset = 0; offset < size; offset += kWord) {
    const std::size_t index = wordAt(bytes + offset);
    if (index != kMostWords) onWord(index, writes);
  }
}

void requireLive(const void* address) {
  const std::size_t index = wordAt(static_cast<const char*>(address));
  if (index != kMostWords && gFreed[index]) fail("use of freed memory");
}

void onAcquire(const void* object) {
  join(gThreads[static_cast<std::size_t>(currentThread())], clockOf(object));
}

void onRelease(const void* object) {
  const auto thread = static_cast<std::size_t>(currentThread());
  join(clockOf(object), gThreads[thread]);
  ++gThreads[thread][thread];
}

}  // namespace quen::interleavings
