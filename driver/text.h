// Bytes as a person may see them: whatever they are, nothing in them reaches a terminal raw.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quen::driver {

bool isUtf8(std::string_view bytes);

// The bytes with everything that is no printable UTF-8 text as C-style escapes: control characters,
// those that turn the direction of writing, and single bytes of what is not UTF-8.
std::string escaped(std::string_view bytes);

// The same between double quotes; quotes and backslashes within are escaped too.
std::string inQuotes(std::string_view bytes);

// Two lower-case digits for each byte.
std::string hexOf(std::string_view bytes);

// The bytes that hexadecimal digits stand for; none when there is an odd digit or no digit.
std::optional<std::string> bytesOfHex(std::string_view digits);

}  // namespace quen::driver
