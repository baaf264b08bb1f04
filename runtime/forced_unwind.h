// The exception that represents the end of a thread (pthread_cancel, pthread_exit) in a catch
// clause, which has to rethrow it.
#pragma once

#include <cxxabi.h>

namespace quen {

#ifdef __GLIBCXX__
using ForcedUnwind = abi::__forced_unwind;
#else
struct ForcedUnwind {};  // libc++ has no type for it; nothing throws this
#endif

}  // namespace quen
