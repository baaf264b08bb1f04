// How the C++ library at hand differs from libstdc++ on 64 bits, for which the tests are written.
#pragma once

#include <memory>
#include <version>  // _LIBCPP_VERSION

namespace quen::tests {

// kCountsUnderALock: std::shared_ptr counts its owners under one lock of the process, which a fork
// can leave locked in the child. So it is on RISC-V, where GCC 12 has no inline atomic operations
// on single bytes.
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
