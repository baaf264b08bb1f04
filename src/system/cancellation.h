// Thread cancellation (pthread_cancel(3)). glibc unwinds a cancelled thread with a forced unwind,
// which C++ code sees as an exception. A handler that catches it has to rethrow it, and it must not
// leave a noexcept function; otherwise the process is terminated. Private to the module.
#pragma once

#include <cxxabi.h>
#include <pthread.h>

namespace quen::io {

// Disables cancellation of the current thread for a scope; a request stays pending until then.
class WithoutCancellation {
 public:
  // Neither call can fail with these arguments.
  WithoutCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~WithoutCancellation() { pthread_setcancelstate(before_, nullptr); }
  WithoutCancellation(const WithoutCancellation&) = delete;
  WithoutCancellation& operator=(const WithoutCancellation&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

#ifdef __GLIBCXX__

// The exception that represents cancellation in a catch clause.
using ForcedUnwind = abi::__forced_unwind;

// For a scope whose exceptions are caught.
struct CaughtCancellation {};

#else

// libc++ has no type for a forced unwind and cannot rethrow one, so catch (...) would end the
// process. Cancellation waits until the end of a scope whose exceptions are caught.
struct ForcedUnwind {};
using CaughtCancellation = WithoutCancellation;

#endif

}  // namespace quen::io
