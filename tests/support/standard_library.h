// How the C++ library at hand differs from libstdc++ on 64 bits, for which the tests are written.
#pragma once

#include <memory>
#include <version>  // _LIBCPP_VERSION

namespace quen::tests {

// With a lock, std::shared_ptr counts under one that all counts of the process share. RISC-V has
// it, where GCC 12 has no atomic operations on single bytes. A fork can leave it locked in the
// child.
#ifdef _LIBCPP_VERSION
inline constexpr bool kLibcxx = true;
inline constexpr bool kCountsUnderALock = false;
#else
inline constexpr bool kLibcxx = false;
inline constexpr bool kCountsUnderALock = __gnu_cxx::__default_lock_policy == __gnu_cxx::_S_mutex;
#endif

// A size may be too large for std::string, and Debian's libstdc++ has times from 1901 to 2038.
inline constexpr bool k32Bits = sizeof(void*) == 4;

}  // namespace quen::tests
