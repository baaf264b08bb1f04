// The one UTF-8 validator of the module.

#include <cstddef>
#include <cstdint>
#include <string>

#include "contents/text.h"

namespace quen::io {

namespace {

// A lead byte announces how long its sequence is, brings the first bits of the code point, and sets
// the smallest code point that needs this length.
struct Lead {
  std::size_t length;  // 0: not a lead
  std::uint32_t bits;
  std::uint32_t smallest;
};

Lead classifyLead(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1Fu, 0x80};
  if (byte >= 0xE0 && byte <= 0xEF) return {3, byte & 0x0Fu, 0x800};
  if (byte >= 0xF0 && byte <= 0xF4) return {4, byte & 0x07u, 0x10000};
  return {0, 0, 0};
}

bool isContinuation(unsigned char byte) { return (byte & 0xC0u) == 0x80u; }

bool isEncodable(std::uint32_t codePoint, std::uint32_t smallest) {
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint >= smallest && codePoint <= 0x10FFFF && !surrogate;
}

}  // namespace

// A text that ends too soon is at fault at its lead, whatever the bytes behind it are: length comes
// before continuation, and continuation before range.
bool validateUtf8(const std::string& text, std::uint64_t& errorOffset) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  const auto failAt = [&errorOffset](std::size_t offset) {
    errorOffset = offset;
    return false;
  };

  errorOffset = 0;
  std::size_t i = 0;
  while (i < size) {
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    const Lead lead = classifyLead(bytes[i]);
    if (lead.length == 0 || lead.length > size - i) return failAt(i);

    std::uint32_t codePoint = lead.bits;
    for (std::size_t k = i + 1; k < i + lead.length; ++k) {
      if (!isContinuation(bytes[k])) return failAt(k);
      codePoint = (codePoint << 6) | (bytes[k] & 0x3Fu);
    }
    if (!isEncodable(codePoint, lead.smallest)) return failAt(i);
    i += lead.length;
  }
  return true;
}

}  // namespace quen::io
