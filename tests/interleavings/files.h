// Files in memory, in place of system/descriptor.cpp. Each operation on one is a step of the
// schedule.
#pragma once

#include <cstddef>
#include <string_view>

namespace quen::interleavings {

// Which writes of each file fail.
enum class Disk { kWorks, kFailsOnce, kFull };

// Removes all files. Each has to be large enough for what a program writes.
void resetFiles(Disk disk);

// The bytes of a file; nothing if it was never opened.
std::string_view bytesOf(std::string_view path);

// Whether there is a descriptor that was not closed.
bool isAnyFileOpen();

}  // namespace quen::interleavings
