// Whole files as text, for the readers that share them. Private to the module.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quen::io {

// Whether the whole text is well-formed UTF-8. If not, `errorOffset` is the byte offset of the
// first fault: the offending byte for a bad continuation byte, the lead byte for everything else.
// If so, it is 0. The bytes before `from` are known to be well-formed, with a sequence beginning
// there. Allocates nothing.
bool validateUtf8(std::string_view text, std::uint64_t& errorOffset, std::size_t from = 0);

// Passes over well-formed sequences from the one at `from` on, quickly, and gives the offset of the
// sequence at which it stopped: one that the end cuts off, one at fault, or any of the last ones.
std::size_t passWellFormed(std::string_view text, std::size_t from);

// Processors of a widespread kind copy ten times more slowly, and more, to where a target lies
// fewer bytes than this further within its page than the source does within its own. What bytes are
// copied from has as much room beyond what it will hold: two blocks of a size that is a multiple of
// 4 KiB, allocated in a row, would lie 16 bytes apart.
inline constexpr std::size_t kSlowDistances = 32;

// The bytes of a file, and how far they are known to be well-formed UTF-8: a sequence begins there.
struct FileText {
  std::string bytes;
  std::size_t wellFormed = 0;
};

// Every byte of the file. Empty after raising IOException "File path is empty" or "Cannot open
// file".
FileText readTextFileOrRaise(const char* path);

// The bytes when all of them are well-formed UTF-8. Empty after raising IOException "File is not
// valid UTF-8 at byte N" when they are not.
std::string validUtf8OrRaise(FileText text);

}  // namespace quen::io
