// Texts that may not change until the entry point returns: the arguments, and what the host lends.
#pragma once

#include <array>
#include <cstddef>

namespace quen::checked {

// How much of a text can be told.
struct Extent {
  bool readable = true;    // false when memory that cannot be read comes before the NUL
  std::size_t length = 0;  // as far as it was looked at
  bool terminated = false;
};

// Looks at the first pages of a text only: each takes a system call, unless the thread asked about
// it before.
Extent extentOf(const char* text);

// Keeps a copy of the first and the last bytes of a text, of short texts all. Allocators write into
// the first bytes of a freed block.
class WatchedText {
 public:
  WatchedText(const char* text, const Extent& extent);

  bool isUnchanged() const;

 private:
  static constexpr std::size_t kChunk = 64;

  const char* text_ = nullptr;
  std::size_t first_ = 0;           // bytes of the first chunk
  const char* lastText_ = nullptr;  // where the last chunk begins
  std::size_t last_ = 0;            // its bytes, the NUL among them
  std::array<char, kChunk> firstCopy_{};
  std::array<char, kChunk + 1> lastCopy_{};
};

}  // namespace quen::checked
