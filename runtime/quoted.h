// Shows bytes in messages for people.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace quen {

// The bytes in quotes, unprintable ones as \xNN; of more than `most` bytes the first, and how many
// there are.
inline std::string quoted(std::string_view bytes, std::size_t most) {
  std::string text = "\"";
  for (const char each : bytes.substr(0, most)) {
    const auto byte = static_cast<unsigned char>(each);
    if (each == '"' || each == '\\') {
      text += {'\\', each};
    } else if (byte >= 0x20 && byte < 0x7F) {
      text += each;
    } else {
      std::array<char, 5> escaped{};
      static_cast<void>(std::snprintf(escaped.data(), escaped.size(), "\\x%02X", byte));
      text += escaped.data();
    }
  }
  text += '"';
  if (bytes.size() > most) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

}  // namespace quen
