// The error of the operating system behind a fixed message of the module ("Cannot open file").
#pragma once

#include <string>

namespace quen::driver {

// ": Permission denied" if the file still cannot be opened or read, otherwise "". The file is
// opened again, so a transient failure has no reason.
std::string readingReason(const std::string& path);

}  // namespace quen::driver
