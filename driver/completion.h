// Tab completion of the shell.
#pragma once

#include "driver/arguments.h"

namespace quen::driver {

// Makes readline complete the first word of a line to commands and entry points, and further words
// to forms of arguments, names of `results` (read at each completion) and paths.
void enableCompletion(const Results& results);

}  // namespace quen::driver
