// A runtime with a global interpreter lock and with finalizers: the rules of docs/boundary.md
// prevent its deadlocks with the module's locks, and without them it deadlocks.
//
// Each scenario runs in a child process, which ends with the status kDeadlock as soon as threads
// wait for each other in a cycle.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <latch>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"
#include "tests/support/limits.h"
#include "tests/support/lock_graph.h"
#include "tests/support/waiting_writers.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class GlobalLock : public WaitingWriters {
 protected:
  // Calls this at the beginning of each operation, but not of those that it calls itself.
  void inOperations(std::function<void(const std::string& operation)> step) {
    recorder.interfere = [step](const std::string& operation) {
      thread_local bool inside = false;
      if (inside) return;
      inside = true;
      step(operation);
      inside = false;
    };
  }

  // The first deadlock: this thread holds the global lock, and waits for the registry unless it
  // gives the global lock up around the entry point. The other one raises under the lock of the
  // registry, and waits for the global lock if Quen_raise takes it.
  void meetAnotherThreadThatRaises(bool givesUpTheLock, bool raiseTakesTheLock) {
    const std::int64_t handle = openWaiting("a");
    endAtDeadlock();
    std::latch raising(1);
    inOperations([&](const std::string& operation) {
      if (operation != "Quen_raise") return;
      raising.count_down();
      if (raiseTakesTheLock) const std::lock_guard lock(globalLock);
    });

    std::unique_lock holding(globalLock);
    std::thread other([] { quen_io_FileWriter__flushHandle(kNeverIssued); });
    raising.wait();
    if (givesUpTheLock) holding.unlock();
    quen_io_FileWriter__flushHandle(handle);
    if (givesUpTheLock) holding.lock();
    holding.unlock();
    other.join();
    std::_Exit(contents(scratch / "a") == "waiting" ? 0 : 1);
  }

  // The second deadlock: a collection finalizes the object that owns a writer, in Quen_raise
  // or in the first operation after it.
  void finalizeAWriter(std::int64_t handle, bool raiseCollects, std::int64_t failing) {
    endAtDeadlock();
    bool raised = false;
    inOperations([&](const std::string& operation) {
      raised = raised || operation == "Quen_raise";
      if (!raised || (operation == "Quen_raise" && !raiseCollects)) return;
      raised = false;
      quen_io_FileWriter__closeHandle(handle);
    });

    quen_io_FileWriter__flushHandle(failing);
    quen_io_Path__pathName("an allocation");
    std::_Exit(raised ? 1 : 0);
  }

  const Watchdog watchdog;
  std::mutex globalLock;
  quen::recording::Recorder recorder;
};

using Deadlock = testing::ExitedWithCode;

TEST_F(GlobalLock, HeldAroundAnEntryPointAndTakenByRaiseDeadlocks) {
  EXPECT_EXIT(meetAnotherThreadThatRaises(false, true), Deadlock(kDeadlock),
              "deadlock of 2 threads");
}

TEST_F(GlobalLock, GivenUpAroundEntryPointsDoesNotDeadlock) {
  EXPECT_EXIT(meetAnotherThreadThatRaises(true, true), testing::ExitedWithCode(0), "");
}

TEST_F(GlobalLock, ThatRaiseDoesNotTakeDoesNotDeadlock) {
  EXPECT_EXIT(meetAnotherThreadThatRaises(false, false), testing::ExitedWithCode(0), "");
}

TEST_F(GlobalLock, WithBothRulesDoesNotDeadlock) {
  EXPECT_EXIT(meetAnotherThreadThatRaises(true, false), testing::ExitedWithCode(0), "");
}

TEST_F(GlobalLock, AFinalizerInRaiseDeadlocksUnderTheLockOfTheRegistry) {
  EXPECT_EXIT(finalizeAWriter(openWaiting("a"), true, kNeverIssued), Deadlock(kDeadlock),
              "deadlock of 1 threads");
}

TEST_F(GlobalLock, AFinalizerAfterRaiseDoesNotDeadlockUnderTheLockOfTheRegistry) {
  EXPECT_EXIT(finalizeAWriter(openWaiting("a"), false, kNeverIssued), testing::ExitedWithCode(0),
              "");

  EXPECT_EQ(contents(scratch / "a"), "waiting");
}

class GlobalLockOfAFailingWriter : public GlobalLock {
 protected:
  static std::int64_t openFailing() {
    const std::int64_t handle = quen_io_FileWriter__openPath("/dev/full", 0);
    quen_io_FileWriter__writeHandle(handle, "lost");
    return handle;
  }
};

TEST_F(GlobalLockOfAFailingWriter, AFinalizerInRaiseDeadlocks) {
  const std::int64_t failing = openFailing();
  EXPECT_EXIT(finalizeAWriter(failing, true, failing), Deadlock(kDeadlock),
              "deadlock of 1 threads");
}

TEST_F(GlobalLockOfAFailingWriter, AFinalizerAfterRaiseDoesNotDeadlock) {
  const std::int64_t failing = openFailing();
  EXPECT_EXIT(finalizeAWriter(failing, false, failing), testing::ExitedWithCode(0), "");
}

// Re-entry: no other operation is called under a lock of the module.
class Finalizers : public GlobalLock {
 protected:
  // Calls entry points that together call every operation.
  void callEveryOperation() {
    const std::string folder = scratch.folder("folder");
    void* file = newPath(scratch.file("folder/file", "text").native());
    quen_io_FolderPath__listNamesNative(folder.c_str());
    quen_io_FileReader__readAllTextPath((folder + "/file").c_str());
    void* bytes = newByteArray(4);
    quen_io_FileInputStream__readBytesPath((folder + "/file").c_str(), 0, bytes, 4);
    quen_io_Files__writeBytesPath((folder + "/file").c_str(), bytes);
    quen_io_Path_resolve(quen_io_Path_normalize(file), file);
    quen_io_Path__exists(file);
    quen_io_Path_name(file);
    quen_io_Path_rename(file, "renamed");
    EXPECT_EQ(contents(scratch / "folder/renamed"), "text");
    quen_io_FolderPath__removeAllNative(folder.c_str());
    EXPECT_FALSE(fs::exists(folder));
  }
};

TEST_F(Finalizers, MayCloseWritersInEveryOtherOperation) {
  constexpr std::size_t kOperations = 19;
  EXPECT_EXIT(
      {
        endAtDeadlock();
        std::set<std::string> seen;
        inOperations([&](const std::string& operation) {
          if (operation == "Quen_raise") return;
          seen.insert(operation);
          quen_io_FileWriter__closeHandle(openWaiting("finalized"));
        });
        callEveryOperation();
        EXPECT_EQ(seen.size(), kOperations);
        EXPECT_EQ(contents(scratch / "finalized"), "waiting");
        std::_Exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
