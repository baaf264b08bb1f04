// What the shell proposes when the tab key is pressed.
#pragma once

#include "driver/arguments.h"

namespace quen::driver {

// Lets readline propose commands and entry points for the first word of a line, and for the others
// forms of arguments, the names of these results, which are looked at each time, and paths.
void enableCompletion(const Results& results);

}  // namespace quen::driver
