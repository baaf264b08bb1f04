// The operations that every runtime implements alike, for hosts that write their own object
// operations: a host defines what it wants to do itself, and links quen::runtime_parts for the
// rest. These are
//
//   Quen_runtimeFsPath, Quen_visiblePathString, Quen_pathHasExplicitWindowsRoot
//   Quen_allocPathString                    by way of the host's Quen_allocString
//   Quen_pathEntryKind, Quen_pathExists     which always ask the system
//   Quen_cachePathEntryKind                 which records nothing
//   Quen_raise, Quen_hasPendingError        which keep the exception in native memory of the thread
//
// Each is taken only if the host does not define it, except for the last two, which a host defines
// both or neither. None of them creates an object, calls the host or takes a lock, except that
// Quen_allocPathString calls Quen_allocString.
#pragma once

#include <optional>
#include <string>

#include "quen/io/operations.h"

namespace quen::parts {

// What Quen_pathEntryKind gives for everything that is neither a regular file nor a directory.
inline constexpr QuenPathEntryKind kMissingEntry{0};
inline constexpr QuenPathEntryKind kOtherEntry{3};

// The arguments of Quen_raise.
struct Exception {
  std::string className;
  std::string message;
};

// Takes the pending exception of this thread, if any; none is pending afterwards. While an
// exception is pending, further ones are dropped, because the first one is the cause.
std::optional<Exception> takeException();

// Puts aside the exception that is pending on this thread, and makes it pending again at the end of
// the scope, instead of any other. A host that runs finalizers inside its operations opens such a
// scope around each call of an entry point, since the finalizer's calls are not those of the
// program that it interrupts.
class PendingExceptionScope {
 public:
  PendingExceptionScope();
  ~PendingExceptionScope();
  PendingExceptionScope& operator=(PendingExceptionScope&&) =
      delete;  // neither copyable nor movable

 private:
  std::optional<Exception> outer_;
};

}  // namespace quen::parts
