// Colours and weights, for a terminal only: a pipe or a file gets the text alone.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace quen::driver {

enum class Style { kBold, kDim, kFailure };

// The text in this style where the stream, std::cout or std::cerr, is a terminal that knows styles.
// NO_COLOR in the environment, unless it is empty, turns them off.
std::string styled(const std::ostream& stream, Style style, std::string_view text);

}  // namespace quen::driver
