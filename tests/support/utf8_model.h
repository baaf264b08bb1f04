// A slow reference for UTF-8 validation: it looks each sequence up in the table of well-formed byte
// sequences (table 3-7 of the Unicode standard) and determines the offset of a fault afterwards.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace quen::tests {

struct WellFormed {
  unsigned char firstLeast, firstMost;
  unsigned char secondLeast, secondMost;  // further bytes are 80 to BF
  std::size_t length;
};

inline constexpr WellFormed kWellFormed[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

inline bool isWithin(char byte, unsigned char least, unsigned char most) {
  const auto value = static_cast<unsigned char>(byte);
  return value >= least && value <= most;
}

// The offset of the first fault; none in well-formed text.
inline std::optional<std::size_t> firstFault(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const WellFormed* row = nullptr;
    std::size_t length = 0;  // of any sequence with this lead, well-formed or not
    for (const WellFormed& each : kWellFormed) {
      if (!isWithin(text[at], each.firstLeast, each.firstMost)) continue;
      row = &each;
      length = each.length;
    }
    if (row == nullptr || at + length > text.size()) return at;

    for (std::size_t k = 1; k < length; ++k) {
      if (!isWithin(text[at + k], 0x80, 0xBF)) return at + k;
    }
    if (length > 1 && !isWithin(text[at + 1], row->secondLeast, row->secondMost)) return at;
    at += length;
  }
  return std::nullopt;
}

}  // namespace quen::tests
