// Threads that are cancelled (pthread_cancel(3)) while the module releases what it holds. The
// release is finished, and the request takes effect at the next cancellation point after the call:
// a forced unwind in a destructor would end the process.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <functional>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/system_calls.h"

using namespace quen::small;
using namespace quen::tests;

namespace {

class Cancellation : public BoundaryTest {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "sanitizers do not follow a forced unwind";
  }

  // Makes the call on a thread that is cancelled right before the nth such system call, as if every
  // one were a cancellation point.
  static void expectFinishedWhenCancelledBefore(SystemCall systemCall,
                                                const std::function<void()>& call, int nth = 1) {
    struct Thread {
      SystemCall systemCall;
      const std::function<void()>& call;
      int nth;
      bool returned = false;
    } state{systemCall, call, nth};
    const auto run = [](void* argument) -> void* {
      Thread& thread = *static_cast<Thread*>(argument);
      {
        const auto cancel = [] {
          pthread_cancel(pthread_self());
          pthread_testcancel();
        };
        const BeforeCall cancelled(thread.systemCall, cancel, thread.nth);
        thread.call();
      }
      thread.returned = true;
      pthread_testcancel();
      return nullptr;
    };
    const auto before = openFiles();
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, run, &state), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);

    EXPECT_TRUE(state.returned);
    EXPECT_EQ(result, PTHREAD_CANCELED) << "after the call";
    EXPECT_EQ(openFiles(), before);
  }
};

TEST_F(Cancellation, WaitsUntilAReaderHasClosedItsFile) {
  const std::string file = scratch.file("file", "text");
  inChild([&] {
    expectFinishedWhenCancelledBefore(SystemCall::kClose,
                                      [&] { quen_io_FileReader__readAllTextPath(file.c_str()); });
  });
}

TEST_F(Cancellation, WaitsUntilAWriterHasClosedItsFile) {
  const std::string file = scratch.file("file");
  inChild([&] {
    expectFinishedWhenCancelledBefore(SystemCall::kClose, [&] {
      quen_io_FileWriter__closeHandle(quen_io_FileWriter__openPath(file.c_str(), 0));
    });
  });
}

// closedir(3) may be a cancellation point (pthreads(7)); in glibc it is none.
TEST_F(Cancellation, WaitsUntilAListingHasClosedItsFolder) {
  inChild([&] {
    expectFinishedWhenCancelledBefore(SystemCall::kCloseFolder, [&] {
      quen_io_FolderPath__listNamesNative(scratch.path().c_str());
    });
  });
}

// After a failed flush, the writer that is destroyed tries to write the rest once more.
TEST_F(Cancellation, WaitsUntilADestroyedWriterHasWrittenItsRest) {
  const auto fail = [] {
    const std::int64_t handle = quen_io_FileWriter__openPath("/dev/full", 0);
    quen_io_FileWriter__writeHandle(handle, "text");
    quen_io_FileWriter__flushHandle(handle);
    quen_io_FileWriter__closeHandle(handle);
    takeException();
  };
  inChild([&] { expectFinishedWhenCancelledBefore(SystemCall::kWrite, fail, 2); });
}

}  // namespace
