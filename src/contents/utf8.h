// The UTF-8 validator. Private to the module.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quen::io {

// Whether the whole text is well-formed UTF-8. If not, `errorOffset` is the byte offset of the
// first fault: of the offending byte when a continuation byte is expected and another byte found,
// of the lead byte for everything else (no lead, a truncated or overlong sequence, a surrogate, a
// code point that is too large). If so, it is 0. The bytes before `from` are known to be
// well-formed, and a sequence begins there. Allocates nothing.
bool validateUtf8(std::string_view text, std::uint64_t& errorOffset, std::size_t from = 0);

// Skips well-formed sequences from the one at `from` on, block by block, and gives the offset of
// the sequence at which it stopped: one that the end of the text truncates, one at fault, or any of
// the last ones, which are too few for a block.
std::size_t passWellFormed(std::string_view text, std::size_t from);

}  // namespace quen::io
