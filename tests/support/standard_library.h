// How the C++ library at hand differs from libstdc++ on 64 bits, for which the tests are written.
#pragma once

#include <version>  // _LIBCPP_VERSION

namespace quen::tests {

#ifdef _LIBCPP_VERSION
inline constexpr bool kLibcxx = true;
#else
inline constexpr bool kLibcxx = false;
#endif

// A size may be too large for std::string, and Debian's libstdc++ has times from 1901 to 2038.
inline constexpr bool k32Bits = sizeof(void*) == 4;

}  // namespace quen::tests
