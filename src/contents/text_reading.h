// Whole files as text, for the readers that share them. Private to the module.
#pragma once

#include <cstddef>
#include <string>

namespace quen::io {

// The bytes of a file, and how far they are known to be well-formed UTF-8: a sequence begins there.
struct FileText {
  std::string bytes;
  std::size_t wellFormed = 0;
};

// Reserves memory for a text of this size, and spare capacity against 4 KiB aliasing. Too large a
// size leaves as the exception that a std::string of this size would throw.
void reserve(std::string& text, std::size_t size);

// Every byte of the file. Empty after raising IOException "File path is empty" or "Cannot open
// file".
FileText readTextFileOrRaise(const char* path);

// The bytes when all of them are well-formed UTF-8. Empty after raising IOException "File is not
// valid UTF-8 at byte N" when they are not.
std::string validUtf8OrRaise(FileText text);

}  // namespace quen::io
