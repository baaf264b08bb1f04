// Files of the driver's own use, reached as everything else: through entry points.
#pragma once

#include <string>

namespace quen::driver {

// All bytes of a regular file. Throws UsageError when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace quen::driver
