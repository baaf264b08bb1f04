// How the C++ library at hand differs from libstdc++ on 64 bits, for which the tests are written.
#pragma once

#include <version>  // _LIBCPP_VERSION

namespace quen::tests {

#ifdef _LIBCPP_VERSION
inline constexpr bool kLibcxx = true;
#else
inline constexpr bool kLibcxx = false;
#endif

// On 32 bits, Debian's libstdc++ is compiled with a time_t of 32 bits: from 1901 to 2038.
inline constexpr bool kShortTimes = sizeof(void*) == 4;

}  // namespace quen::tests
