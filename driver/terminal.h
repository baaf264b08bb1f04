// Colours and bold text, on terminals only: pipes and files get plain text.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace quen::driver {

enum class Style { kBold, kDim, kFailure };

// Whether the stream, std::cout or std::cerr, is a terminal that supports escape sequences: TERM is
// set and not "dumb".
bool takesEscapes(const std::ostream& stream);

// The text in this style if the stream, std::cout or std::cerr, is a terminal that supports escape
// sequences. A NO_COLOR variable that is not empty disables styles (no-color.org).
std::string styled(const std::ostream& stream, Style style, std::string_view text);

}  // namespace quen::driver
