// Whole files as text, for the readers that share them. Private to the module.
#pragma once

#include <cstdint>
#include <string>

namespace quen::io {

// Whether the whole text is well-formed UTF-8. If not, `errorOffset` is the byte offset of the
// first fault: the offending byte for a bad continuation byte, the lead byte for everything else.
// If so, it is 0. Allocates nothing.
bool validateUtf8(const std::string& text, std::uint64_t& errorOffset);

// Every byte of the file, unchecked. Empty after raising IOException "File path is empty", "Cannot
// open file" or "Failed to read file".
std::string readTextFileOrRaise(const char* path);

// The text itself when it is well-formed UTF-8. Empty after raising IOException "File is not valid
// UTF-8 at byte N" when it is not.
std::string validUtf8OrRaise(std::string text);

}  // namespace quen::io
