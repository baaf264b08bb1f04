#include "driver/text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace quen::driver {

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

struct Character {
  std::size_t length = 0;  // 0: not UTF-8
  char32_t codePoint = 0;
};

// Decodes the first character; `bytes` is not empty.
Character firstCharacter(std::string_view bytes) {
  constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(bytes[0]);
  if (lead < 0x80) return {1, lead};
  if (lead < 0xC2 || lead > 0xF4) return {};

  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length > bytes.size()) return {};
  char32_t codePoint = lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[i]);
    if ((next & 0xC0u) != 0x80) return {};
    codePoint = (codePoint << 6) | (next & 0x3Fu);
  }
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (codePoint < kSmallest[length] || codePoint > 0x10FFFF || surrogate) return {};
  return {length, codePoint};
}

// Control characters, line and paragraph separators, and bidirectional formatting characters.
bool isPrintable(char32_t codePoint) {
  if (codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F)) return false;
  const bool turns = codePoint == 0x61C || codePoint == 0x200E || codePoint == 0x200F ||
                     (codePoint >= 0x2028 && codePoint <= 0x202E) ||
                     (codePoint >= 0x2066 && codePoint <= 0x2069);
  return !turns;
}

std::string escapedByte(char byte) {
  switch (byte) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: return "\\x" + hexOf({&byte, 1});
  }
}

std::string escapedBut(std::string_view bytes, bool quoting) {
  std::string text;
  while (!bytes.empty()) {
    const Character first = firstCharacter(bytes);
    const std::size_t length = first.length == 0 ? 1 : first.length;
    if (first.length == 0 || !isPrintable(first.codePoint)) {
      for (const char byte : bytes.substr(0, length)) text += escapedByte(byte);
    } else {
      if (quoting && (bytes[0] == '"' || bytes[0] == '\\')) text += '\\';
      text += bytes.substr(0, length);
    }
    bytes.remove_prefix(length);
  }
  return text;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const Character first = firstCharacter(bytes);
    if (first.length == 0) return false;
    bytes.remove_prefix(first.length);
  }
  return true;
}

std::string escaped(std::string_view bytes) { return escapedBut(bytes, false); }

std::string inQuotes(std::string_view bytes) { return '"' + escapedBut(bytes, true) + '"'; }

std::string escapedForJson(const std::string& json) {
  const auto isPlain = [](char each) { return each >= ' ' && each < '\x7f'; };
  if (std::ranges::all_of(json, isPlain)) return json;

  std::string text;
  for (std::string_view rest = json; !rest.empty();) {
    const Character first = firstCharacter(rest);
    const std::size_t length = first.length == 0 ? 1 : first.length;
    if (isPrintable(first.codePoint)) {
      text += rest.substr(0, length);
    } else {  // all of these have four digits
      const std::array bytes = {static_cast<char>(first.codePoint >> 8),
                                static_cast<char>(first.codePoint & 0xFFu)};
      text += "\\u" + hexOf({bytes.data(), bytes.size()});
    }
    rest.remove_prefix(length);
  }
  return text;
}

std::string hexOf(std::string_view bytes) {
  std::string digits;
  digits.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    digits += kDigits[static_cast<unsigned char>(byte) >> 4];
    digits += kDigits[static_cast<unsigned char>(byte) & 0xFu];
  }
  return digits;
}

std::optional<std::string> bytesOfHex(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  const auto valueOf = [](char digit) {
    return kDigits.find(digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a')
                                                     : digit);
  };
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const std::size_t high = valueOf(digits[i]);
    const std::size_t low = valueOf(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

}  // namespace quen::driver
