// A process that ends or forks at the worst moment: while Quen_raise is called under a lock of the
// module.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"
#include "tests/support/child_process.h"
#include "tests/support/limits.h"
#include "tests/support/sanitized.h"
#include "tests/support/waiting_writers.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

constexpr const char* kThreadsOfTheParent =
    "the leak checker reports what threads own that fork did not copy";

class ExitFromRaise : public WaitingWriters {
 protected:
  // Calls this right before Quen_raise does its work.
  void whenRaising(std::function<void()> step) {
    recorder.interfere = [step](const std::string& operation) {
      if (operation == "Quen_raise") step();
    };
  }

  const Watchdog watchdog;
  quen::recording::Recorder recorder;
};

TEST_F(ExitFromRaise, UnderTheLockOfTheRegistryWritesEveryWriterOut) {
  EXPECT_EXIT(
      {
        openWaiting("a");
        openWaiting("b");
        whenRaising([] { std::exit(7); });
        quen_io_FileWriter__flushHandle(kNeverIssued);
      },
      testing::ExitedWithCode(7), "");

  EXPECT_EQ(contents(scratch / "a"), "waiting");
  EXPECT_EQ(contents(scratch / "b"), "waiting");
}

// Nothing is held for a number that is no handle, so the exit finds the lock free.
TEST_F(ExitFromRaise, ForWhatIsNoHandleWritesEveryWriterOut) {
  EXPECT_EXIT(
      {
        openWaiting("a");
        whenRaising([] { std::exit(7); });
        quen_io_FileWriter__flushHandle(0);
      },
      testing::ExitedWithCode(7), "");

  EXPECT_EQ(contents(scratch / "a"), "waiting");
}

TEST_F(ExitFromRaise, UnderTheLockOfAWriterWritesTheOthersOut) {
  for (const auto call : {quen_io_FileWriter__flushHandle, quen_io_FileWriter__closeHandle}) {
    EXPECT_EXIT(
        {
          openWaiting("a");
          const std::int64_t failing = quen_io_FileWriter__openPath("/dev/full", 0);
          quen_io_FileWriter__writeHandle(failing, "lost");
          whenRaising([] { std::exit(7); });
          call(failing);
        },
        testing::ExitedWithCode(7), "");

    EXPECT_EQ(contents(scratch / "a"), "waiting");
    fs::remove(scratch / "a");
  }
}

// A second exception of the same kind, to find the registry unlocked again by the first.
TEST_F(ExitFromRaise, AfterAnEarlierExceptionWritesEveryWriterOut) {
  EXPECT_EXIT(
      {
        openWaiting("a");
        quen_io_FileWriter__flushHandle(kNeverIssued);
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");

  EXPECT_EQ(contents(scratch / "a"), "waiting");
}

// What the other thread keeps locked stays as it is.
TEST_F(ExitFromRaise, WhileAnotherThreadKeepsTheLockDoesNotWaitForIt) {
  EXPECT_EXIT(
      {
        std::latch raising(1);
        std::latch never(1);
        whenRaising([&] {
          raising.count_down();
          never.wait();
        });
        std::thread([] { quen_io_FileWriter__flushHandle(kNeverIssued); }).detach();
        raising.wait();
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");
}

// How a child ends that exits at once, and whether it wrote its copy of the buffered text.
int statusOfExitingChild() {
  const pid_t child = fork();
  if (child == 0) std::exit(7);
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ExitFromRaise, AForkUnderTheLockLeavesAChildThatWritesItsCopiesOut) {
  inChild([this] {
    openWaiting("a");
    int status = -1;
    whenRaising([&] { status = statusOfExitingChild(); });

    quen_io_FileWriter__flushHandle(kNeverIssued);

    EXPECT_EQ(status, 7);
    EXPECT_EQ(contents(scratch / "a"), "waiting");
    whenRaising([] {});
    takeException();
    openWaiting("b");  // the parent goes on
    EXPECT_EQ(raised(), "");
  });
}

TEST_F(ExitFromRaise, AForkWhileAnotherThreadRaisesLeavesAChildThatWritesItsCopiesOut) {
  if (kSanitized) GTEST_SKIP() << kThreadsOfTheParent;
  inChild([this] {
    openWaiting("a");
    std::latch raising(1);
    std::latch forked(1);
    whenRaising([&] {
      raising.count_down();
      forked.wait();
    });
    std::jthread other([] { quen_io_FileWriter__flushHandle(kNeverIssued); });
    raising.wait();

    EXPECT_EQ(statusOfExitingChild(), 7);
    forked.count_down();
    other.join();

    EXPECT_EQ(contents(scratch / "a"), "waiting");
    whenRaising([] {});
    openWaiting("b");  // the parent's lock is free again
    EXPECT_EQ(raised(), "");
  });
}

// docs/boundary.md, "Exit and fork": the text that is buffered during a fork, and how to avoid that
// both processes write it. The processes share the file offset.
class ForkWithBufferedText : public ExitFromRaise {
 protected:
  // What the file contains in the end when the child ends like this.
  std::string contentsAfterAFork(bool isFlushedBefore, void (*end)(int)) {
    inChild([&] {
      const std::int64_t handle = openWaiting("a");
      if (isFlushedBefore) quen_io_FileWriter__flushHandle(handle);
      const pid_t child = fork();
      if (child == 0) end(0);
      waitpid(child, nullptr, 0);
      quen_io_FileWriter__closeHandle(handle);
    });
    return contents(scratch / "a");
  }
};

TEST_F(ForkWithBufferedText, IsWrittenByBothProcesses) {
  EXPECT_EQ(contentsAfterAFork(false, std::exit), "waitingwaiting");
}

TEST_F(ForkWithBufferedText, IsWrittenOnceIfItWasFlushedBefore) {
  EXPECT_EQ(contentsAfterAFork(true, std::exit), "waiting");
}

TEST_F(ForkWithBufferedText, IsWrittenOnceIfTheChildEndsWithoutExitHandlers) {
  EXPECT_EQ(contentsAfterAFork(false, _exit), "waiting");
}

// Each child inherits the registry at another moment of the four threads that use it.
TEST_F(ExitFromRaise, AForkOfAThreadedParentLeavesChildrenThatExitAndWriteTheirCopiesOut) {
  if (kSanitized) GTEST_SKIP() << kThreadsOfTheParent;
  inChild([this] {
    constexpr int kChildren = 100;
    std::atomic<bool> done = false;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&] {
        while (!done) quen_io_FileWriter__closeHandle(openWaiting("busy"));
      });
    }
    for (int i = 0; i < kChildren; ++i) {
      const std::int64_t handle = openWaiting("own");
      EXPECT_EQ(statusOfExitingChild(), 7);
      EXPECT_EQ(contents(scratch / "own"), "waiting") << "written by the child";
      quen_io_FileWriter__closeHandle(handle);
    }
    done = true;
  });
}

}  // namespace
