// Escapes arbitrary bytes for display, so that no control sequence reaches a terminal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quen::driver {

bool isUtf8(std::string_view bytes);

// Replaces everything except printable UTF-8 by C-style escapes: control characters, bidirectional
// formatting characters and the bytes of invalid sequences.
std::string escaped(std::string_view bytes);

// The same in double quotes; quotes and backslashes are escaped too.
std::string inQuotes(std::string_view bytes);

// Replaces characters that are not printable in a JSON text, which is UTF-8, by JSON escapes.
std::string escapedForJson(const std::string& json);

// Two lower-case digits for each byte.
std::string hexOf(std::string_view bytes);

// Decodes hexadecimal digits; none if their number is odd or a character is not a digit.
std::optional<std::string> bytesOfHex(std::string_view digits);

}  // namespace quen::driver
