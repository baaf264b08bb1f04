// Files that the driver itself reads; like all files, through entry points.
#pragma once

#include <cstdint>
#include <string>

namespace quen::driver {

// The largest number of bytes held in memory, because some files are endless.
inline constexpr std::int64_t kMostBytes = std::int64_t{1} << 30;

// All bytes of a regular file. Throws UsageError if it cannot be read or is larger than the limit.
std::string readFile(const std::string& path);

}  // namespace quen::driver
