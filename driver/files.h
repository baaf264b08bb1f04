// Files of the driver's own use, reached as everything else: through entry points.
#pragma once

#include <cstdint>
#include <string>

namespace quen::driver {

// How many bytes are held at once: some files have no end, and a number is soon mistyped.
inline constexpr std::int64_t kMostBytes = std::int64_t{1} << 30;

// All bytes of a regular file. Throws UsageError when it cannot be read or is larger than that.
std::string readFile(const std::string& path);

}  // namespace quen::driver
