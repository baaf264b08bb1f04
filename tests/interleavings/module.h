// The module's writers, compiled for the explorer, and the runtime that they call.
#pragma once

#include <cstdint>

namespace quen::interleavings {

// What a call raised.
enum class Raised : std::uint8_t {
  kNothing,
  kCannotOpen,
  kClosed,
  kWriteFailed,
  kFlushFailed,
  kCloseFailed,
};

// The exception of the current thread's last call, which is pending no longer.
Raised takeRaised();

// From now on Quen_raise does not return on the current thread.
void neverReturnFromRaise();

// Makes a registry without writers.
void resetWriters();

// Does what the exit of the process does to the writers.
void exitWriters();

// The handlers around a fork.
void beforeFork();
void afterForkInParent();
void afterForkInChild();

}  // namespace quen::interleavings
