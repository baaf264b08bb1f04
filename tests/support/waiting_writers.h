// The fixture of tests in which writers have text in their buffers when something happens.
#pragma once

#include <cstdint>

#include "quen/io/entry_points.h"
#include "tests/support/boundary_test.h"

namespace quen::tests {

// No test opens so many writers.
inline constexpr std::int64_t kNeverIssued = 1'000'000'000;

class WaitingWriters : public BoundaryTest {
 protected:
  // A writer with text in its buffer.
  std::int64_t openWaiting(const char* name) const {
    const std::int64_t handle = quen_io_FileWriter__openPath((scratch / name).c_str(), 0);
    quen_io_FileWriter__writeHandle(handle, "waiting");
    return handle;
  }
};

}  // namespace quen::tests
