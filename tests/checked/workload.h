// Ordinary work: every entry point, on ordinary and on odd paths and contents.
#pragma once

#include <filesystem>

namespace quen::tests {

// Works in the folder, which has to be empty, over the small runtime's objects. Takes every
// exception that an entry point raises.
void workIn(const std::filesystem::path& folder);

}  // namespace quen::tests
