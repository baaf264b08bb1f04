// Splits a line of the shell into words, and quotes words.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quen::driver {

// The words of a line; nullopt if a quote is not closed.
std::optional<std::vector<std::string>> wordsOf(std::string_view line);

// Removes the quoting from a typed word, which may be incomplete. `quote` is the quote that was
// opened before it, or '\0'.
std::string unquoted(std::string_view typed, char quote);

// Quotes a word for typing after this open quote, or after none ('\0').
std::string asTyped(std::string_view word, char quote);

// Whether the character is quoted or escaped, so that it does not end a word.
bool isQuoted(std::string_view line, std::size_t index);

}  // namespace quen::driver
