// The table of entry points for reading.
#pragma once

#include <ostream>

#include "driver/entry_table.h"

namespace quen::driver {

// Short name, signature and a line on what it does, for every entry point.
void listEntryPoints(std::ostream& output);

// The same for one entry point, with all that there is to say about it.
void explainEntryPoint(std::ostream& output, const EntryPoint& entry);

}  // namespace quen::driver
