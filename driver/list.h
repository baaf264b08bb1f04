// Prints the table of entry points.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "driver/entry_table.h"

namespace quen::driver {

// Prints short name, signature and summary of every entry point.
void listEntryPoints(std::ostream& output);

// The same for entry points whose names or summary contain one of the words. An entry point that a
// word names is shown with its full description, and alone if the word is its full or short name.
// Throws UsageError for a word without a match.
void listEntryPoints(std::ostream& output, const std::vector<std::string>& words);

// Prints one entry point with its full description.
void explainEntryPoint(std::ostream& output, const EntryPoint& entry);

}  // namespace quen::driver
