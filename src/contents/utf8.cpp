// The one UTF-8 validator of the module.
//
// A text is validated in blocks first. The test of a block is a loop over vectors without branches,
// and it tells only whether the block is well-formed. The rest, a fault to be located or a sequence
// that the end of the text truncates, is decoded sequence by sequence.

#include "contents/utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Function multiversioning: there is a version for AVX2 and one for the baseline. Callees have to
// be inlined to be compiled for AVX2, too. Off for coverage, which would see only the version that
// this processor takes.
#if defined(__x86_64__) && !defined(QUEN_IO_ONE_FORM)
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

// Testing block by block, with vectors of kWidth bytes (GCC's vector extensions, which clang
// shares). A byte is tested together with the three bytes before it, which may lie before the
// block.

constexpr std::size_t kPredecessors = 3;
constexpr std::size_t kBlock = 512;
constexpr std::size_t kShort = 64;         // up to here, ASCII is skipped by words
constexpr std::size_t kWorthTesting = 16;  // fewer bytes are decoded as fast

constexpr std::uint64_t kTopBits = 0x8080808080808080;

// Every function is inlined into passBlocks, so no vector is passed between functions and how one
// would be passed (the ABI, which depends on the instruction set) does not matter.
#pragma GCC diagnostic ignored "-Wpsabi"
// For processors without vectors, g++ does not see that passShort puts zeros before the text.
#pragma GCC diagnostic ignored "-Wstringop-overread"

template <std::size_t kWidth>
struct Blocks {
  using Bytes [[gnu::vector_size(kWidth)]] = Byte;
  using SignedBytes [[gnu::vector_size(kWidth)]] = signed char;

  QUEN_IO_INLINE static Bytes load(const Byte* at) {
    Bytes bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    return bytes;
  }

  QUEN_IO_INLINE static bool hasTopBit(const Bytes& bytes) {
    std::uint64_t words[kWidth / sizeof(std::uint64_t)];
    std::memcpy(words, &bytes, sizeof bytes);
    std::uint64_t any = 0;
    for (const std::uint64_t word : words) any |= word;
    return (any & kTopBits) != 0;
  }

  QUEN_IO_INLINE static Bytes highest(const Bytes& one, const Bytes& other) {
    return one > other ? one : other;
  }
  QUEN_IO_INLINE static Bytes lowest(const Bytes& one, const Bytes& other) {
    return one < other ? one : other;
  }

  // Has its top bit set exactly where byte >= least, which has to be 80 or above.
  QUEN_IO_INLINE static Bytes atLeast(const Bytes& bytes, Byte least) {
    const Byte rest = least - 0x80;
    return highest(bytes, Bytes{} + rest) - rest;
  }

  // The next two are FF where they hold, else 0. ASCII is not below any bound: a signed comparison,
  // the only one that x86 has.
  QUEN_IO_INLINE static Bytes isBelow(const Bytes& bytes, Byte bound) {
    return reinterpret_cast<Bytes>(reinterpret_cast<SignedBytes>(bytes) <
                                   static_cast<signed char>(bound));
  }
  QUEN_IO_INLINE static Bytes equals(const Bytes& bytes, Byte value) {
    return reinterpret_cast<Bytes>(bytes == value);
  }

  // The tests for sequences of up to kLongest bytes. Each fault sets a top bit. An incomplete last
  // vector is tested as the last kWidth bytes of the block.
  template <int kLongest>
  QUEN_IO_INLINE static bool passesTests(const Byte* begin, const Byte* end, const Bytes& tooHigh) {
    const Byte* const last = end - kWidth;
    Bytes faults = tooHigh;
    Bytes nearest = ~Bytes{};
    for (const Byte* next = begin; next < end; next += kWidth) {
      const Byte* const at = std::min(next, last);
      const Bytes bytes = load(at);
      const Bytes before = load(at - 1);

      // There are continuation bytes exactly where a lead byte before them announces one.
      Bytes due = atLeast(before, 0xC0);
      if constexpr (kLongest >= 3) due |= atLeast(load(at - 2), 0xE0);
      if constexpr (kLongest >= 4) due |= atLeast(load(at - 3), 0xF0);
      faults |= due ^ isBelow(bytes, 0xC0);

      // No C0 and no C1, which could only begin overlong sequences.
      nearest = lowest(nearest, bytes ^ 0xC0);

      // Below A0 (or 90) no continuation byte follows E0 (F0), which would be overlong. From there
      // on none follows ED (F4), which would be a surrogate (above U+10FFFF).
      if constexpr (kLongest >= 3) {
        faults |= equals(before ^ (isBelow(bytes, 0xA0) & (0xE0 ^ 0xED)), 0xED);
      }
      if constexpr (kLongest >= 4) {
        faults |= equals(before ^ (isBelow(bytes, 0x90) & (0xF0 ^ 0xF4)), 0xF4);
      }
    }
    return !hasTopBit(faults | equals(nearest & 0xFE, 0));
  }

  // The highest byte tells how long the sequences can be, and so which tests are needed.
  QUEN_IO_INLINE static bool isWellFormed(const Byte* begin, const Byte* end) {
    const Byte* const last = end - kWidth;
    Bytes top = load(std::min(begin - kPredecessors, last));
    const Byte* next = begin;
    for (; static_cast<std::size_t>(end - next) >= 4 * kWidth; next += 4 * kWidth) {
      const Bytes half = highest(load(next), load(next + kWidth));
      const Bytes other = highest(load(next + 2 * kWidth), load(next + 3 * kWidth));
      top = highest(top, highest(half, other));
    }
    for (; next < end; next += kWidth) top = highest(top, load(std::min(next, last)));

    if (!hasTopBit(top)) return true;
    if (!hasTopBit(atLeast(top, 0xE0))) return passesTests<2>(begin, end, Bytes{});
    if (!hasTopBit(atLeast(top, 0xF0))) return passesTests<3>(begin, end, Bytes{});
    return passesTests<4>(begin, end, atLeast(top, 0xF5));
  }

  // Returns the offset of the first block that is not well-formed, or `size`.
  QUEN_IO_INLINE static std::size_t pass(const Byte* bytes, std::size_t at, std::size_t size) {
    while (at < size) {
      const std::size_t end = at + std::min(kBlock, size - at);
      if (!isWellFormed(bytes + at, bytes + end)) break;
      at = end;
    }
    return at;
  }
};

#ifdef QUEN_IO_ALSO_WIDE
[[gnu::target("avx2")]] std::size_t passWideBlocks(const Byte* bytes, std::size_t at,
                                                   std::size_t size) {
  return Blocks<32>::pass(bytes, at, size);
}
#endif

// The first bytes, which have fewer than three before them, are decoded as sequences.
std::size_t passBlocks(std::string_view text, std::size_t from) {
  const std::size_t start = std::max(from, readSequences(text, from, kPredecessors));
  if (start < kPredecessors) return from;
#ifdef QUEN_IO_ALSO_WIDE
  if (__builtin_cpu_supports("avx2")) return passWideBlocks(bytesOf(text), start, text.size());
#endif
  return Blocks<16>::pass(bytesOf(text), start, text.size());
}

// A short text is tested behind zeros, which take the place of bytes before it. Aligned, since a
// load that spans several stores (store forwarding) waits for them, more so across cache lines.
std::size_t passShort(std::string_view text, std::size_t from) {
  alignas(16) Byte copy[16 + kShort] = {};
  const std::size_t end = sizeof copy;
  const std::size_t begin = end - (text.size() - from);
  std::memcpy(copy + begin, text.data() + from, end - begin);
  return Blocks<16>::isWellFormed(copy + begin, copy + end) ? text.size() : from;
}

// Skips whole words of ASCII.
std::size_t passAscii(std::string_view text, std::size_t from) {
  std::uint64_t word = 0;
  for (; text.size() - from >= sizeof word; from += sizeof word) {
    std::memcpy(&word, text.data() + from, sizeof word);
    if ((word & kTopBits) != 0) break;
  }
  return from;
}

// The offset of the lead of the sequence that `at` cuts in two, or `at` if it cuts none. The bytes
// before `at` are well-formed up to that lead.
std::size_t sequenceStart(const Byte* bytes, std::size_t at) {
  if (at >= 1 && bytes[at - 1] >= 0xC0) return at - 1;
  if (at >= 2 && bytes[at - 2] >= 0xE0) return at - 2;
  if (at >= 3 && bytes[at - 3] >= 0xF0) return at - 3;
  return at;
}

}  // namespace

std::size_t passWellFormed(std::string_view text, std::size_t from) {
  if (text.size() > kShort) return sequenceStart(bytesOf(text), passBlocks(text, from));

  from = passAscii(text, from);
  if (text.size() - from < kWorthTesting) return from;
  return sequenceStart(bytesOf(text), passShort(text, from));
}

bool validateUtf8(std::string_view text, std::uint64_t& errorOffset, std::size_t from) {
  const std::size_t fault = readSequences(text, passWellFormed(text, from), text.size());
  const bool valid = fault == text.size();
  errorOffset = valid ? 0 : fault;
  return valid;
}

}  // namespace quen::io
