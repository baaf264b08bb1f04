// The standard descriptors 0 to 2, which the caller may have closed.
#pragma once

namespace quen::driver {

// Occupies the numbers of closed standard descriptors, so that no file opened later becomes
// standard output. Reading and writing there still fail, as on a closed descriptor. Returns false
// if open(2) fails.
bool holdStandardDescriptors();

}  // namespace quen::driver
