// The one UTF-8 validator of the module.
//
// A text is validated in blocks first. The test of a block consists of loops over its bytes without
// branches, which compilers vectorize, and it tells only whether the block is well-formed. The
// rest, a fault to be located or the last bytes of a text, is decoded sequence by sequence.

#include "contents/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Function multiversioning (GCC's target_clones): the function is compiled for AVX2 and for the
// baseline, and an ifunc resolver chooses when the module is loaded. Callees have to be inlined to
// be compiled for AVX2, too. Off under the thread sanitizer, whose runtime is not initialized yet
// when the resolver runs, and for coverage, which would see only the version that this processor
// takes.
#if defined(__SANITIZE_THREAD__)
#define QUEN_IO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#define QUEN_IO_THREAD_SANITIZER __has_feature(thread_sanitizer)
#else
#define QUEN_IO_THREAD_SANITIZER 0
#endif
#if defined(__x86_64__) && !QUEN_IO_THREAD_SANITIZER && !defined(QUEN_IO_ONE_FORM)
#define QUEN_IO_ALSO_WIDE __attribute__((target_clones("avx2", "default")))
#else
#define QUEN_IO_ALSO_WIDE
#endif
#define QUEN_IO_INLINE [[gnu::always_inline]] inline

namespace quen::io {

namespace {

using Byte = unsigned char;

const Byte* bytesOf(std::string_view text) { return reinterpret_cast<const Byte*>(text.data()); }

// Decoding sequence by sequence.

// A lead byte announces how long its sequence is, brings the first bits of the code point, and sets
// the smallest code point that needs this length.
struct Lead {
  std::size_t length;  // 0: not a lead
  std::uint32_t bits;
  std::uint32_t smallest;
};

Lead classifyLead(Byte byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1Fu, 0x80};
  if (byte >= 0xE0 && byte <= 0xEF) return {3, byte & 0x0Fu, 0x800};
  if (byte >= 0xF0 && byte <= 0xF4) return {4, byte & 0x07u, 0x10000};
  return {0, 0, 0};
}

bool isContinuation(Byte byte) { return (byte & 0xC0u) == 0x80u; }

bool isEncodable(std::uint32_t codePoint, std::uint32_t smallest) {
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint >= smallest && codePoint <= 0x10FFFF && !surrogate;
}

// Decodes the sequences that begin before `until`, from the one at `i` on. Returns the offset of
// the first fault, or of the byte after the last sequence. The length is checked first, then the
// continuation bytes, then the range: the fault of a sequence that the end of the text cuts off is
// at its lead, whatever bytes follow it.
std::size_t readSequences(std::string_view text, std::size_t i, std::size_t until) {
  const Byte* bytes = bytesOf(text);
  while (i < until) {
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    const Lead lead = classifyLead(bytes[i]);
    if (lead.length == 0 || lead.length > text.size() - i) return i;

    std::uint32_t codePoint = lead.bits;
    for (std::size_t k = i + 1; k < i + lead.length; ++k) {
      if (!isContinuation(bytes[k])) return k;
      codePoint = (codePoint << 6) | (bytes[k] & 0x3Fu);
    }
    if (!isEncodable(codePoint, lead.smallest)) return i;
    i += lead.length;
  }
  return i;
}

// Testing block by block. A byte is tested together with the three bytes before it, which may lie
// before the block. Several short loops are faster than one: each keeps its constants in registers.

constexpr std::size_t kPredecessors = 3;
constexpr std::size_t kBlock = 256;
constexpr std::size_t kSmallBlock = 64;

constexpr Byte kTopBit = 0x80;

// Has its top bit set exactly when byte >= lowest.
QUEN_IO_INLINE Byte atLeast(Byte byte, Byte lowest) {
  const Byte rest = lowest - kTopBit;
  return static_cast<Byte>(std::max(byte, rest) - rest);
}

QUEN_IO_INLINE Byte maskOf(bool condition) { return condition ? 0xFF : 0; }

template <std::size_t kSize>
QUEN_IO_INLINE bool isAscii(const Byte* block) {
  std::uint64_t any = 0;
  for (std::size_t i = 0; i < kSize; i += sizeof any) {
    std::uint64_t word = 0;
    std::memcpy(&word, block + i, sizeof word);
    any |= word;
  }
  return (any & 0x8080808080808080u) == 0;
}

template <std::size_t kSize>
QUEN_IO_INLINE Byte highestByte(const Byte* block) {
  Byte highest = 0;
  for (std::size_t i = 0; i < kSize; ++i) highest = std::max(highest, block[i]);
  return highest;
}

// There are continuation bytes exactly where a lead byte before them announces one.
template <std::size_t kSize, std::size_t kLongest>
QUEN_IO_INLINE bool hasContinuationsInPlace(const Byte* block) {
  const Byte* one = block - 1;
  const Byte* two = block - 2;
  const Byte* three = block - 3;
  Byte misplaced = 0;
  for (std::size_t i = 0; i < kSize; ++i) {
    Byte due = atLeast(one[i], 0xC0);
    if constexpr (kLongest >= 3) due |= atLeast(two[i], 0xE0);
    if constexpr (kLongest >= 4) due |= atLeast(three[i], 0xF0);
    const bool continuation = static_cast<signed char>(block[i]) < -0x40;
    misplaced |= static_cast<Byte>(due ^ maskOf(continuation));
  }
  return misplaced < kTopBit;
}

// No C0 and no C1, which could only begin overlong sequences.
template <std::size_t kSize>
QUEN_IO_INLINE bool hasNoOverlongPairs(const Byte* block) {
  Byte nearest = 0xFF;
  for (std::size_t i = 0; i < kSize; ++i) {
    nearest = std::min(nearest, static_cast<Byte>(block[i] ^ 0xC0u));
  }
  return nearest > 1;
}

// After the lead kLow no continuation byte is below the bound (overlong), and after the lead kHigh
// none is at or above the bound (a surrogate, or above U+10FFFF).
template <std::size_t kSize, Byte kLow, Byte kHigh, Byte kBound>
QUEN_IO_INLINE bool hasSecondBytesInRange(const Byte* block) {
  constexpr auto kSignedBound = static_cast<signed char>(kBound);
  const Byte* leads = block - 1;
  Byte nearest = 0xFF;
  for (std::size_t i = 0; i < kSize; ++i) {
    const Byte fromBound = maskOf(static_cast<signed char>(block[i]) >= kSignedBound);
    const Byte wrongLead = kLow ^ (fromBound & (kLow ^ kHigh));
    nearest = std::min(nearest, static_cast<Byte>(leads[i] ^ wrongLead));
  }
  return nearest > 0;
}

// The highest byte tells how long the sequences can be, and so which tests are needed. Without
// branches between them, the processor runs the tests in parallel.
template <std::size_t kSize>
QUEN_IO_INLINE bool isWellFormed(const Byte* block) {
  const Byte highestBefore = std::max(std::max(block[-1], block[-2]), block[-3]);
  if (highestBefore < 0x80 && isAscii<kSize>(block)) return true;

  const Byte highest = std::max(highestByte<kSize>(block), highestBefore);

  bool good = hasNoOverlongPairs<kSize>(block);
  if (highest < 0xE0) return good & hasContinuationsInPlace<kSize, 2>(block);

  good &= hasSecondBytesInRange<kSize, 0xE0, 0xED, 0xA0>(block);
  if (highest < 0xF0) return good & hasContinuationsInPlace<kSize, 3>(block);

  good &= hasSecondBytesInRange<kSize, 0xF0, 0xF4, 0x90>(block);
  return good & hasContinuationsInPlace<kSize, 4>(block) & (highest < 0xF5);
}

// Tests block by block from `at` on, and returns the offset of the first block that is not
// well-formed, or `size`. An incomplete last block is tested as the last kSize bytes of the text.
template <std::size_t kSize>
QUEN_IO_INLINE std::size_t passBlocks(const Byte* bytes, std::size_t at, std::size_t size) {
  while (size - at >= kSize && isWellFormed<kSize>(bytes + at)) at += kSize;
  const bool atEnd = size - at < kSize;
  return atEnd && isWellFormed<kSize>(bytes + size - kSize) ? size : at;
}

QUEN_IO_ALSO_WIDE
std::size_t passBlocksOfEitherSize(const Byte* bytes, std::size_t at, std::size_t size) {
  return size >= kPredecessors + kBlock ? passBlocks<kBlock>(bytes, at, size)
                                        : passBlocks<kSmallBlock>(bytes, at, size);
}

// The offset of the lead of the sequence that `at` cuts in two, or `at` if it cuts none. The bytes
// before `at` are well-formed up to that lead.
std::size_t sequenceStart(const Byte* bytes, std::size_t at) {
  if (bytes[at - 1] >= 0xC0) return at - 1;
  if (bytes[at - 2] >= 0xE0) return at - 2;
  if (bytes[at - 3] >= 0xF0) return at - 3;
  return at;
}

}  // namespace

// The first bytes, which have fewer than three before them, are decoded as sequences.
std::size_t passWellFormed(std::string_view text, std::size_t from) {
  if (text.size() < kPredecessors + kSmallBlock) return from;
  const std::size_t start = std::max(from, readSequences(text, from, kPredecessors));
  if (start < kPredecessors) return from;

  const std::size_t end = passBlocksOfEitherSize(bytesOf(text), start, text.size());
  return end == start ? from : sequenceStart(bytesOf(text), end);
}

bool validateUtf8(std::string_view text, std::uint64_t& errorOffset, std::size_t from) {
  const std::size_t fault = readSequences(text, passWellFormed(text, from), text.size());
  const bool valid = fault == text.size();
  errorOffset = valid ? 0 : fault;
  return valid;
}

}  // namespace quen::io
