#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <limits>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/child_process.h"
#include "tests/support/limits.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/standard_library.h"
#include "tests/support/system_calls.h"
#include "tests/support/threads.h"
#include "tests/support/waiting_writers.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

using Handle = std::int64_t;

constexpr const char* kDeviceWithoutSpace = "/dev/full";
constexpr const char* kClosed = "IOException: File writer is closed";
constexpr const char* kCannotOpen = "IOException: Cannot open file for writing";
constexpr const char* kWriteFailed = "IOException: Failed to write file";
constexpr const char* kFlushFailed = "IOException: Failed to flush file";
constexpr const char* kCloseFailed = "IOException: Failed to flush file before closing";

constexpr std::size_t kMostKeptBack = 8192;

// Larger than the buffer of any stream.
const std::string kLong(std::size_t{1} << 20, 'x');

class Writers : public BoundaryTest {
 protected:
  static Handle open(const fs::path& path, std::int32_t append = 0) {
    const Handle handle = quen_io_FileWriter__openPath(path.c_str(), append);
    EXPECT_EQ(raised(), "") << "opening " << path;
    EXPECT_GT(handle, 0);
    return handle;
  }

  static std::string raisedByOpening(const char* path, std::int32_t append) {
    EXPECT_EQ(quen_io_FileWriter__openPath(path, append), 0);
    return raised();
  }

  static std::string raisedByWriting(Handle handle, const char* text) {
    quen_io_FileWriter__writeHandle(handle, text);
    return raised();
  }

  static std::string raisedByWriting(Handle handle, const std::string& text) {
    return raisedByWriting(handle, text.c_str());
  }

  static std::string raisedByFlushing(Handle handle) {
    quen_io_FileWriter__flushHandle(handle);
    return raised();
  }

  static std::string raisedByClosing(Handle handle) {
    quen_io_FileWriter__closeHandle(handle);
    return raised();
  }

  // A closed handle: writing and flushing raise, closing it again does not.
  static void expectClosed(Handle handle) {
    EXPECT_EQ(raisedByWriting(handle, "lost"), kClosed) << handle;
    EXPECT_EQ(raisedByWriting(handle, nullptr), kClosed) << handle;
    EXPECT_EQ(raisedByFlushing(handle), kClosed) << handle;
    EXPECT_EQ(raisedByClosing(handle), "") << handle;
  }
};

// Handles.

TEST_F_IN_FRESH_PROCESS(Writers, HandlesCountSuccessfulOpensFromOneOnAndAreNeverUsedAgain) {
  EXPECT_EQ(raisedByOpening(nullptr, 0), "IOException: File path is empty");
  EXPECT_EQ(raisedByOpening((scratch / "missing/a").c_str(), 0), kCannotOpen);
  expectClosed(1);

  EXPECT_EQ(open(scratch / "a"), 1);
  EXPECT_EQ(raisedByOpening(scratch.path().c_str(), 1), kCannotOpen);
  EXPECT_EQ(open(scratch / "b"), 2);

  EXPECT_EQ(raisedByClosing(1), "");
  EXPECT_EQ(raisedByClosing(2), "");
  EXPECT_EQ(open(scratch / "a"), 3);
  EXPECT_EQ(open(scratch / "a"), 4);
  expectClosed(1);
  expectClosed(2);
  expectClosed(5);
}

TEST_F(Writers, HandlesThatWereNeverIssuedAreClosed) {
  for (const Handle handle : {Handle{0}, Handle{-1}, std::numeric_limits<Handle>::min(),
                              kNeverIssued, std::numeric_limits<Handle>::max()}) {
    expectClosed(handle);
  }
}

TEST_F(Writers, HandlesAreKnownByAllTheirBits) {
  const Handle handle = open(scratch / "file");

  expectClosed(handle + (Handle{1} << 32));
  expectClosed(-handle);

  EXPECT_EQ(raisedByClosing(handle), "");
}

TEST_F(Writers, HandlesAreClosedForGood) {
  const Handle handle = open(scratch / "file");
  EXPECT_EQ(raisedByWriting(handle, "text"), "");

  EXPECT_EQ(raisedByClosing(handle), "");

  expectClosed(handle);
  expectClosed(handle);
  EXPECT_EQ(contents(scratch / "file"), "text");
}

TEST_F(Writers, HandlesOfTheSameFileAreApart) {
  const Handle one = open(scratch / "file", 1);
  const Handle other = open(scratch / "file", 1);
  EXPECT_NE(one, other);

  for (const auto& [handle, text] : {std::pair(one, "one "), std::pair(other, "other")}) {
    EXPECT_EQ(raisedByWriting(handle, text), "");
    EXPECT_EQ(raisedByClosing(handle), "");
  }

  EXPECT_EQ(contents(scratch / "file"), "one other");
}

TEST_F(Writers, HandlesGoByTheThousands) {
  constexpr std::size_t kCount = 3000;
  if (!allowOpenFiles(kCount + 100)) GTEST_SKIP() << "the system allows fewer open files";
  const auto before = openFiles();
  const auto name = [](std::size_t i) { return std::to_string(i); };

  std::vector<Handle> handles;
  for (std::size_t i = 0; i < kCount; ++i) handles.push_back(open(scratch / name(i)));
  for (std::size_t i = 0; i < kCount; ++i) EXPECT_EQ(raisedByWriting(handles[i], name(i)), "");
  for (std::size_t i = kCount; i > 0; --i) EXPECT_EQ(raisedByClosing(handles[i - 1]), "");

  EXPECT_EQ(std::set<Handle>(handles.begin(), handles.end()).size(), kCount);
  EXPECT_EQ(openFiles(), before);
  for (std::size_t i = 0; i < kCount; ++i) EXPECT_EQ(contents(scratch / name(i)), name(i));
  for (const Handle handle : handles) EXPECT_EQ(raisedByFlushing(handle), kClosed);
}

// Opening.

TEST_F(Writers, OpenEmptiesTheFileAtOnce) {
  const fs::path file = scratch.file("file", "old");

  const Handle handle = open(file, 0);

  EXPECT_EQ(contents(file), "");
  EXPECT_EQ(raisedByClosing(handle), "");
  EXPECT_EQ(contents(file), "");
}

// Every value except 0 appends, including those whose low bytes are 0.
TEST_F(Writers, OpenToAppendKeepsTheFile) {
  for (const std::int32_t append :
       {1, 2, -1, 0x100, 0x10000, 0x1000000, std::numeric_limits<std::int32_t>::min(),
        std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(append);
    const fs::path file = scratch.file("file", "old ");

    const Handle handle = open(file, append);
    EXPECT_EQ(contents(file), "old ");
    EXPECT_EQ(raisedByWriting(handle, "new"), "");
    EXPECT_EQ(raisedByClosing(handle), "");

    EXPECT_EQ(contents(file), "old new");
  }
}

TEST_F(Writers, OpenMakesAMissingFile) {
  const fs::path link = scratch.link("link", scratch / "target");
  for (const std::int32_t append : {0, 1}) {
    const std::string name = "new" + std::to_string(append);
    const Handle handle = open(scratch / name, append);
    EXPECT_EQ(contents(scratch / name), "");
    EXPECT_EQ(raisedByClosing(handle), "");
  }

  EXPECT_EQ(raisedByClosing(open(link)), "");

  EXPECT_EQ(namesIn(scratch.path()), "link new0 new1 target");
}

TEST_F(Writers, OpenAFileRelativeToTheWorkingDirectoryAndKeepIt) {
  inChild([this] {
    fs::current_path(scratch.path());
    const Handle handle = open("file");
    fs::current_path("/");
    EXPECT_EQ(raisedByWriting(handle, "text"), "");
    EXPECT_EQ(raisedByClosing(handle), "");
  });

  EXPECT_EQ(contents(scratch / "file"), "text");
}

TEST_F(Writers, OpenOfAnEmptyPathRaises) {
  for (const std::int32_t append : {0, 1}) {
    EXPECT_EQ(raisedByOpening(nullptr, append), "IOException: File path is empty");
    EXPECT_EQ(raisedByOpening("", append), "IOException: File path is empty");
  }
}

TEST_F(Writers, OpenOfWhatCannotBeOpenedRaisesAndLeavesEverything) {
  const fs::path file = scratch.file("file", "kept");
  scratch.folder("folder");
  scratch.link("link", scratch / "missing/target");
  const auto before = openFiles();

  for (const std::int32_t append : {0, 1}) {
    for (const char* name : {"folder", "missing/new", "link", "file/below", "new/"}) {
      EXPECT_EQ(raisedByOpening((scratch / name).c_str(), append), kCannotOpen) << name;
    }
  }

  EXPECT_EQ(namesIn(scratch.path()), "file folder link");
  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(openFiles(), before);
}

TEST_F(Writers, OpenWithoutPermissionRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");
  fs::permissions(file, fs::perms(0444));
  fs::permissions(scratch.path(), fs::perms(0555));

  inUnprivilegedChild([&] {
    for (const std::int32_t append : {0, 1}) {
      EXPECT_EQ(raisedByOpening(file.c_str(), append), kCannotOpen);
      EXPECT_EQ(raisedByOpening((scratch / "new").c_str(), append), kCannotOpen);
    }
  });

  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(namesIn(scratch.path()), "file");
  EXPECT_EQ(contents(file), "kept");
}

TEST_F(Writers, RecordNoKind) {
  forgetRecordedKinds();

  const Handle handle = open(scratch / "file");
  EXPECT_EQ(raisedByWriting(handle, "text"), "");
  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(raisedByClosing(handle), "");

  EXPECT_EQ(recordedKinds(), 0u);
}

// Writing.

TEST_F(Writers, WriteTheirTextsOneAfterTheOtherAndNothingElse) {
  const Handle handle = open(scratch / "file");

  EXPECT_EQ(raisedByWriting(handle, "one\r\n"), "");
  EXPECT_EQ(raisedByWriting(handle, "\xEF\xBB\xBF h\xC3\xA9 \xFF\xED\xA0\x80"), "");
  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(raisedByWriting(handle, "three"), "");
  EXPECT_EQ(raisedByClosing(handle), "");

  EXPECT_EQ(contents(scratch / "file"), "one\r\n\xEF\xBB\xBF h\xC3\xA9 \xFF\xED\xA0\x80three");
}

TEST_F(Writers, WriteNothingForAnEmptyOrANullText) {
  const Handle handle = open(scratch / "file");

  EXPECT_EQ(raisedByWriting(handle, ""), "");
  EXPECT_EQ(raisedByWriting(handle, nullptr), "");
  EXPECT_EQ(raisedByClosing(handle), "");

  EXPECT_EQ(contents(scratch / "file"), "");
}

TEST_F(Writers, WriteATextUpToItsFirstNul) {
  const Handle handle = open(scratch / "file");

  EXPECT_EQ(raisedByWriting(handle, "ab\0cd"), "");
  EXPECT_EQ(raisedByWriting(handle, "\0ef"), "");
  EXPECT_EQ(raisedByWriting(handle, "gh"), "");
  EXPECT_EQ(raisedByClosing(handle), "");

  EXPECT_EQ(contents(scratch / "file"), "abgh");
}

// O_APPEND makes each write go to the end of the file; without it a writer continues at its offset.
TEST_F(Writers, AppendToOrOverwriteDataOfOtherProcesses) {
  const fs::path file = scratch / "file";
  for (const auto& [append, expected] :
       {std::pair{1, "old ours theirs OURS"}, std::pair{0, "ours OURSrs"}}) {
    scratch.file("file", "old ");
    const Handle handle = open(file, append);
    EXPECT_EQ(raisedByWriting(handle, "ours "), "");
    EXPECT_EQ(raisedByFlushing(handle), "");

    std::ofstream(file, std::ios::app) << (append != 0 ? "theirs " : "theirs");
    EXPECT_EQ(raisedByWriting(handle, "OURS"), "");
    EXPECT_EQ(raisedByClosing(handle), "");

    EXPECT_EQ(contents(file), expected);
  }
}

TEST_F(Writers, FollowARenameOfTheirFile) {
  const Handle handle = open(scratch / "file");
  fs::rename(scratch / "file", scratch / "moved");

  EXPECT_EQ(raisedByWriting(handle, "text"), "");
  EXPECT_EQ(raisedByClosing(handle), "");

  EXPECT_EQ(namesIn(scratch.path()), "moved");
  EXPECT_EQ(contents(scratch / "moved"), "text");
}

TEST_F(Writers, KeepSmallTextsBackUntilTheFlush) {
  const Handle handle = open(scratch / "file");

  EXPECT_EQ(raisedByWriting(handle, "small "), "");
  EXPECT_EQ(raisedByWriting(handle, "texts"), "");
  EXPECT_EQ(contents(scratch / "file"), "");

  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(contents(scratch / "file"), "small texts");

  EXPECT_EQ(raisedByWriting(handle, " more"), "");
  EXPECT_EQ(contents(scratch / "file"), "small texts");
  EXPECT_EQ(raisedByClosing(handle), "");
  EXPECT_EQ(contents(scratch / "file"), "small texts more");
}

TEST_F(Writers, FlushAnyNumberOfTimes) {
  const Handle handle = open(scratch / "file");

  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(raisedByWriting(handle, "text"), "");
  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(contents(scratch / "file"), "text");

  EXPECT_EQ(raisedByClosing(handle), "");
  EXPECT_EQ(contents(scratch / "file"), "text");
}

TEST_F(Writers, KeepBackNoMoreThanTheirBufferHolds) {
  const Handle handle = open(scratch / "file");
  const std::string small(100, 's');
  std::uintmax_t largestKeptBack = 0;

  for (std::uintmax_t written = small.size(); written < 10 * kMostKeptBack;
       written += small.size()) {
    EXPECT_EQ(raisedByWriting(handle, small), "");
    largestKeptBack = std::max(largestKeptBack, written - fs::file_size(scratch / "file"));
  }

  EXPECT_LE(largestKeptBack, kMostKeptBack);
  EXPECT_GT(largestKeptBack, kMostKeptBack / 2);  // small texts are really buffered
  EXPECT_EQ(raisedByClosing(handle), "");
}

TEST_F(Writers, KeepBackNothingOfATextLargerThanTheBufferNorWhatCameBeforeIt) {
  for (const std::size_t size : {kMostKeptBack + 1, 3 * kMostKeptBack, kLong.size()}) {
    const Handle handle = open(scratch / "file");
    EXPECT_EQ(raisedByWriting(handle, "small"), "");

    EXPECT_EQ(raisedByWriting(handle, std::string(size, 'l')), "");
    EXPECT_EQ(fs::file_size(scratch / "file"), 5 + size);

    EXPECT_EQ(raisedByWriting(handle, "small"), "");
    EXPECT_EQ(raisedByClosing(handle), "");
    EXPECT_TRUE(contents(scratch / "file") == "small" + std::string(size, 'l') + "small");
  }
}

// Failing. A writer that failed once fails until it is closed.

TEST_F(Writers, NoticeAFullDeviceAtTheFlush) {
  const Handle handle = open(kDeviceWithoutSpace);

  EXPECT_EQ(raisedByWriting(handle, "few"), "");
  EXPECT_EQ(raisedByFlushing(handle), kFlushFailed);

  EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
  expectClosed(handle);
}

TEST_F(Writers, NoticeAFullDeviceAtTheClose) {
  const Handle handle = open(kDeviceWithoutSpace);

  EXPECT_EQ(raisedByWriting(handle, "few"), "");
  EXPECT_EQ(raisedByClosing(handle), kCloseFailed);

  expectClosed(handle);
}

TEST_F(Writers, NoticeAFullDeviceAtOnceWithALongText) {
  const Handle handle = open(kDeviceWithoutSpace, 1);

  EXPECT_EQ(raisedByWriting(handle, kLong), kWriteFailed);

  EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
  expectClosed(handle);
}

TEST_F(Writers, NoticeNothingOfAFullDeviceWithoutAByteForIt) {
  const Handle handle = open(kDeviceWithoutSpace);

  EXPECT_EQ(raisedByWriting(handle, ""), "");
  EXPECT_EQ(raisedByFlushing(handle), "");
  EXPECT_EQ(raisedByClosing(handle), "");
}

TEST_F(Writers, ThatFailedFailUntilTheyAreClosed) {
  const Handle byWrite = open(kDeviceWithoutSpace);
  const Handle byFlush = open(kDeviceWithoutSpace);
  EXPECT_EQ(raisedByWriting(byWrite, kLong), kWriteFailed);
  EXPECT_EQ(raisedByWriting(byFlush, "few"), "");
  EXPECT_EQ(raisedByFlushing(byFlush), kFlushFailed);

  for (const Handle failed : {byWrite, byFlush}) {
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(raisedByWriting(failed, "text"), kWriteFailed);
      EXPECT_EQ(raisedByWriting(failed, ""), kWriteFailed);
      EXPECT_EQ(raisedByWriting(failed, nullptr), kWriteFailed);
      EXPECT_EQ(raisedByFlushing(failed), kFlushFailed);
    }
    EXPECT_EQ(raisedByClosing(failed), kCloseFailed);
    expectClosed(failed);
  }
}

TEST_F(Writers, ThatFailedDoNotRecoverWhenThereIsSpaceAgain) {
  inChild([this] {
    const Handle handle = open(scratch / "file");
    EXPECT_EQ(raisedByWriting(handle, "before "), "");
    EXPECT_EQ(raisedByFlushing(handle), "");
    EXPECT_EQ(raisedByWriting(handle, "at "), "");
    {
      const FileSizeLimit limit(7);
      EXPECT_EQ(raisedByFlushing(handle), kFlushFailed);
    }

    EXPECT_EQ(raisedByFlushing(handle), kFlushFailed);
    EXPECT_EQ(raisedByWriting(handle, "after"), kWriteFailed);
    EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
    expectClosed(handle);

    EXPECT_EQ(contents(scratch / "file"), "before at ") << "tried again at the very end";
  });
}

TEST_F(Writers, ThatFailLeaveWhatReachedTheFile) {
  const fs::path file = scratch.file("file", "old");

  inChild([&] {
    const FileSizeLimit limit(3000);
    const Handle handle = open(file, 1);
    EXPECT_EQ(raisedByWriting(handle, kLong), kWriteFailed);
    EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
  });

  EXPECT_TRUE(contents(file) == ("old" + kLong).substr(0, 3000));
}

// The flush fails in the middle of the buffer, and there is room again before the writer is
// destroyed.
TEST_F(Writers, ThatFailedToFlushWriteOnlyTheRestAtTheEnd) {
  std::string text;
  for (int number = 0; number < 1000; ++number) text += std::to_string(1000 + number);
  for (const std::int32_t append : {0, 1}) {
    const fs::path file = scratch / ("file" + std::to_string(append));

    inChild([&] {
      const Handle handle = open(file, append);
      EXPECT_EQ(raisedByWriting(handle, text), "");
      {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(raisedByFlushing(handle), kFlushFailed);
        EXPECT_EQ(raisedByFlushing(handle), kFlushFailed);
      }
      EXPECT_EQ(contents(file), text.substr(0, 1000));
      EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
    });

    EXPECT_EQ(contents(file), text);
  }
}

TEST_F(Writers, GoOnAfterAShortWrite) {
  std::string text;
  for (int number = 0; number < 5'000; ++number) text += std::to_string(number);
  for (const std::size_t size : {std::size_t{5'000}, text.size()}) {
    const Handle handle = open(scratch / "file");
    const ShortWrites writes(997);
    EXPECT_EQ(raisedByWriting(handle, text.substr(0, size)), "");
    EXPECT_EQ(raisedByClosing(handle), "");
    EXPECT_EQ(contents(scratch / "file"), text.substr(0, size));
  }
}

// POSIX leaves open what a write(2) that returns 0 means; repeating it could loop forever.
TEST_F(Writers, FailWhenNothingCanBeWritten) {
  const Handle handle = open(scratch / "file");
  const ShortWrites none(0);
  EXPECT_EQ(raisedByWriting(handle, kLong), kWriteFailed);
  EXPECT_EQ(raisedByClosing(handle), kCloseFailed);
}

// Each of these takes one write, and refuses a writev with an empty part.
TEST_F(Writers, WriteToFilesOfTheKernel) {
  const auto set = [](const char* file, const char* value) {
    const Handle handle = open(file);
    EXPECT_EQ(raisedByWriting(handle, value), "");
    EXPECT_EQ(raisedByFlushing(handle), "") << file;
    EXPECT_EQ(raisedByClosing(handle), "");
  };
  for (const char* file : {"/proc/self/oom_score_adj", "/proc/self/coredump_filter"}) {
    if (!fs::exists(file)) GTEST_SKIP() << "this kernel has no " << file;
  }

  inChild([&] {
    set("/proc/self/oom_score_adj", "77");
    EXPECT_EQ(contents("/proc/self/oom_score_adj"), "77\n");
    set("/proc/self/coredump_filter", "0x21");
    EXPECT_EQ(contents("/proc/self/coredump_filter"), "00000021\n");
  });
}

// A file that has positions, and no end to move to.
TEST_F(Writers, OpenToAppendWhatAStreamOpensToAppend) {
  const char* const file = "/proc/self/comm";
  ASSERT_FALSE(std::ofstream(file, std::ios::app).is_open());

  const auto before = openFiles();
  EXPECT_EQ(raisedByOpening(file, 1), kCannotOpen);
  EXPECT_EQ(openFiles(), before);
  EXPECT_EQ(raisedByClosing(open(file, 0)), "");
}

TEST_F(Writers, OpenAPipeToAppend) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);

  EXPECT_EQ(raisedByClosing(open(pipe, 1)), "");
  ::close(reader);
}

TEST_F(Writers, MakeFilesThatTheUmaskAloneRestricts) {
  inChild([&] {
    umask(0);
    EXPECT_EQ(raisedByClosing(open(scratch / "file")), "");
  });

  EXPECT_EQ(fs::status(scratch / "file").permissions(), fs::perms(0666));
}

TEST_F(Writers, AreClosedOnExec) {
  const fs::path file = scratch.file("file");
  for (const std::int32_t append : {0, 1}) {
    const Handle handle = open(file, append);
    EXPECT_EQ(descriptorsKeptOnExec(file), 0);
    EXPECT_EQ(raisedByClosing(handle), "");
  }
}

TEST_F(Writers, ThatFailDoNotAffectOthers) {
  const Handle failing = open(kDeviceWithoutSpace);
  const Handle other = open(scratch / "file");

  EXPECT_EQ(raisedByWriting(failing, kLong), kWriteFailed);
  EXPECT_EQ(raisedByWriting(other, "text"), "");
  EXPECT_EQ(raisedByClosing(failing), kCloseFailed);
  EXPECT_EQ(raisedByClosing(other), "");

  EXPECT_EQ(contents(scratch / "file"), "text");
}

TEST_F(Writers, LeaveNothingOpenWhenClosed) {
  const auto before = openFiles();

  const Handle good = open(scratch / "file");
  const Handle failing = open(kDeviceWithoutSpace);
  EXPECT_EQ(raisedByWriting(failing, "few"), "");
  EXPECT_EQ(openFiles(), before + 2);
  EXPECT_EQ(raisedByClosing(good), "");
  EXPECT_EQ(raisedByClosing(failing), kCloseFailed);

  EXPECT_EQ(openFiles(), before);
}

// The flush before the close succeeded, so all data has reached the system.
TEST_F(Writers, DoNotReportAFileThatFailsToClose) {
  const Handle handle = open(scratch / "file");
  EXPECT_EQ(raisedByWriting(handle, "text"), "");

  const FailingCall failing(SystemCall::kClose, EIO);
  EXPECT_EQ(raisedByClosing(handle), "");

  expectClosed(handle);
  EXPECT_EQ(contents(scratch / "file"), "text");
}

// A close between looking up a handle and taking the lock of its writer, by another thread: here by
// the same one, right before the second lock of the call.
class ClosedWhileLookedUp : public Writers {
 protected:
  void SetUp() override {
    if (kThreadSanitized) GTEST_SKIP() << "the thread sanitizer has to see every lock";
    if (kCountsUnderALock) GTEST_SKIP() << "the second lock of a call is the C++ library's";
  }

  static std::string raisedInsteadOfLocking(Handle handle, const std::function<void()>& call) {
    const BeforeCall lock(
        SystemCall::kLock, [&] { EXPECT_EQ(raisedByClosing(handle), ""); }, 2);
    call();
    return raised();
  }

  std::string raisedByLateWriting(const char* text) const {
    const Handle handle = open(scratch / "file");
    return raisedInsteadOfLocking(handle, [&] { quen_io_FileWriter__writeHandle(handle, text); });
  }

  std::string raisedByLateFlushing() const {
    const Handle handle = open(scratch / "file");
    return raisedInsteadOfLocking(handle, [&] { quen_io_FileWriter__flushHandle(handle); });
  }
};

TEST_F(ClosedWhileLookedUp, AWriteRaisesUnlessItHasNothingToWrite) {
  EXPECT_EQ(raisedByLateWriting("text"), kWriteFailed);
  EXPECT_EQ(raisedByLateWriting(""), "");
  EXPECT_EQ(raisedByLateWriting(nullptr), "");
  EXPECT_EQ(contents(scratch / "file"), "");
}

TEST_F(ClosedWhileLookedUp, AFlushHasNothingToDo) { EXPECT_EQ(raisedByLateFlushing(), ""); }

TEST_F(ClosedWhileLookedUp, AFailedCloseIsReported) {
  const FailingCall once(SystemCall::kClose, EIO);
  EXPECT_EQ(raisedByLateFlushing(), kFlushFailed);
  const FailingCall again(SystemCall::kClose, EIO);
  EXPECT_EQ(raisedByLateWriting(""), kWriteFailed);
}

// The end of the process.

TEST_F(Writers, LeftOpenAreFlushedAtExit) {
  const fs::path kept = scratch.file("kept", "old ");

  EXPECT_EXIT(
      {
        quen_io_FileWriter__writeHandle(quen_io_FileWriter__openPath(kept.c_str(), 1), "kept");
        for (const char* name : {"a", "b", "c"}) {
          quen_io_FileWriter__writeHandle(quen_io_FileWriter__openPath((scratch / name).c_str(), 0),
                                          name);
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");

  EXPECT_EQ(contents(kept), "old kept");
  for (const char* name : {"a", "b", "c"}) EXPECT_EQ(contents(scratch / name), name);
}

TEST_F(Writers, LeftOpenFailSilentlyAtExit) {
  EXPECT_EXIT(
      {
        quen_io_FileWriter__writeHandle(quen_io_FileWriter__openPath(kDeviceWithoutSpace, 0),
                                        "lost");
        quen_io_FileWriter__writeHandle(quen_io_FileWriter__openPath((scratch / "file").c_str(), 0),
                                        "kept");
        std::exit(takeException() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");

  EXPECT_EQ(contents(scratch / "file"), "kept");
}

// Another thread that looks a writer up and keeps the registry's lock until it may release it.
class LongLookUp {
 public:
  explicit LongLookUp(Handle handle)
      : thread_([this, handle] {
          const BeforeCall unlock(SystemCall::kUnlock, [this] {
            held_.count_down();
            released_.wait();
          });
          quen_io_FileWriter__writeHandle(handle, "");
        }) {
    held_.wait();
  }
  ~LongLookUp() { release(); }
  LongLookUp(const LongLookUp&) = delete;
  LongLookUp& operator=(const LongLookUp&) = delete;

  void release() {
    if (!released_.try_wait()) released_.count_down();
  }

 private:
  std::latch held_{1};
  std::latch released_{1};
  std::jthread thread_;
};

// -1 if it was killed by a signal.
int exitStatusOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A fork waits for the registry's lock, so that the child does not inherit it locked; also after
// the forking thread has raised under it. The other thread holds it until the forking thread tries
// to lock it.
TEST_F(Writers, AForkWaitsForALookUpAndLeavesAChildThatWritesItsCopiesOut) {
  if (kSanitized) GTEST_SKIP() << "forks while another thread runs";
  const Watchdog watchdog;
  const Handle handle = open(scratch / "file");
  EXPECT_EQ(raisedByWriting(handle, "waiting"), "");
  EXPECT_EQ(raisedByFlushing(kNeverIssued), kClosed);
  LongLookUp lookUp(handle);

  pid_t child = -1;
  {
    const BeforeCall tryLock(SystemCall::kTryLock, [&] { lookUp.release(); });
    child = fork();
    if (child == 0) std::exit(7);
  }
  lookUp.release();

  EXPECT_EQ(exitStatusOf(child), 7);
  EXPECT_EQ(contents(scratch / "file"), "waiting") << "written by the child";
  EXPECT_EQ(raisedByClosing(handle), "");
}

// Another thread keeps the lock for longer than a fork waits. The child, where that thread does not
// exist, exits without its copies of the texts.
TEST_F(Writers, AForkThatWaitedInVainLeavesAChildThatExits) {
  if (kSanitized) GTEST_SKIP() << "forks while another thread runs";
  if (kCountsUnderALock) GTEST_SKIP() << "the first lock of the look-up is the C++ library's";
  const Watchdog watchdog;
  const Handle handle = open(scratch / "file");
  EXPECT_EQ(raisedByWriting(handle, "waiting"), "");
  LongLookUp lookUp(handle);

  const pid_t child = fork();
  if (child == 0) std::exit(7);

  EXPECT_EQ(exitStatusOf(child), 7);
  EXPECT_EQ(contents(scratch / "file"), "") << "written by the child";
  lookUp.release();
  EXPECT_EQ(raisedByClosing(handle), "");
  EXPECT_EQ(contents(scratch / "file"), "waiting") << "written by the parent";
}

// While one writer blocks: a full pipe blocks it in write(2) until the test reads.

class SlowReader {
 public:
  // Creates the FIFO and opens it for reading.
  explicit SlowReader(const fs::path& pipe) {
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    reader_ = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_NE(reader_, -1);
    capacity_ = fcntl(reader_, F_SETPIPE_SZ, 4096);
    EXPECT_GT(capacity_, 0);
  }
  ~SlowReader() { ::close(reader_); }
  SlowReader(const SlowReader&) = delete;
  SlowReader& operator=(const SlowReader&) = delete;

  std::size_t capacity() const { return static_cast<std::size_t>(capacity_); }

  // Waits until the pipe is full, so that a larger write is blocked.
  void awaitFull() const {
    for (int waiting = 0; waiting < capacity_; std::this_thread::yield()) {
      ASSERT_EQ(ioctl(reader_, FIONREAD, &waiting), 0);
    }
  }

  // Reads until end of file, when no writer has the pipe open any more.
  std::string drain() const {
    EXPECT_EQ(fcntl(reader_, F_SETFL, 0), 0);
    std::string text;
    std::array<char, 4096> part;
    ssize_t size = 0;
    while ((size = ::read(reader_, part.data(), part.size())) > 0) {
      text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  int reader_ = -1;
  int capacity_ = 0;
};

class BlockedWriter : public Writers {
 protected:
  // Expects that all operations on other handles complete meanwhile.
  void expectOthersUndisturbed() const {
    const Handle other = open(scratch / "other");
    EXPECT_EQ(raisedByWriting(other, "text"), "");
    EXPECT_EQ(raisedByFlushing(other), "");
    EXPECT_EQ(contents(scratch / "other"), "text");
    EXPECT_EQ(raisedByClosing(other), "");
    EXPECT_EQ(raisedByOpening(scratch.path().c_str(), 0), kCannotOpen);
    expectClosed(other);
    expectClosed(kNeverIssued);
  }

  // Expects that operations on other handles complete while the call is blocked by the pipe, and
  // that the bytes are written in the end. Closing the handle afterwards lets the reader see end of
  // file.
  void expectOthersNotDelayedBy(
      const std::function<void()>& call, Handle handle, const std::string& written,
      const std::function<void()>& whileBlocked = [] {}) const {
    ASSERT_LT(reader_.capacity(), written.size());
    std::atomic<bool> done = false;
    std::jthread caller([&] {
      call();
      done = true;
      EXPECT_EQ(raisedByClosing(handle), "");
    });
    reader_.awaitFull();

    expectOthersUndisturbed();
    whileBlocked();

    EXPECT_FALSE(done);
    EXPECT_TRUE(reader_.drain() == written);
  }

  // A writer whose buffer holds more than the pipe.
  Handle openAndFillBuffer() const {
    const Handle handle = open(scratch / "pipe");
    for (int i = 0; i < 80; ++i) EXPECT_EQ(raisedByWriting(handle, std::string(100, 'b')), "");
    return handle;
  }

  const std::string buffered_ = std::string(8000, 'b');
  const Watchdog watchdog_;
  const SlowReader reader_{scratch / "pipe"};
};

TEST_F(BlockedWriter, InAWriteDoesNotDelayOthers) {
  const std::string text(4 * reader_.capacity(), 'x');
  const Handle blocked = open(scratch / "pipe");

  expectOthersNotDelayedBy([&] { EXPECT_EQ(raisedByWriting(blocked, text), ""); }, blocked, text);
}

TEST_F(BlockedWriter, InAFlushDoesNotDelayOthers) {
  const Handle blocked = openAndFillBuffer();

  expectOthersNotDelayedBy([&] { EXPECT_EQ(raisedByFlushing(blocked), ""); }, blocked, buffered_);
}

TEST_F(BlockedWriter, InACloseDoesNotDelayOthersAndIsUnknownAlready) {
  const Handle blocked = openAndFillBuffer();

  expectOthersNotDelayedBy([&] { EXPECT_EQ(raisedByClosing(blocked), ""); }, blocked, buffered_,
                           [&] { expectClosed(blocked); });
}

// Of two concurrent closes, the first removes the handle from the registry and waits for the write.
// The other returns at once, and the handle is unknown while the write continues.
TEST_F(BlockedWriter, IsUnknownOnceClosedAndFinishesItsWrite) {
  const std::string text(4 * reader_.capacity(), 'x');
  const Handle blocked = open(scratch / "pipe");
  std::atomic<int> closed = 0;
  std::jthread writer([&] { EXPECT_EQ(raisedByWriting(blocked, text), ""); });
  reader_.awaitFull();

  const auto close = [&] {
    EXPECT_EQ(raisedByClosing(blocked), "");
    ++closed;
    closed.notify_all();
  };
  std::jthread one(close);
  std::jthread other(close);
  closed.wait(0);

  expectClosed(blocked);
  expectOthersUndisturbed();
  EXPECT_EQ(closed, 1);
  EXPECT_TRUE(reader_.drain() == text);
}

// A handle gets its number after the open succeeded.
TEST_F(BlockedWriter, InAnOpenDoesNotDelayOthers) {
  const fs::path unread = scratch / "unread";
  ASSERT_EQ(mkfifo(unread.c_str(), 0600), 0);
  std::latch opening(1);
  Handle blocked = 0;
  std::jthread opener([&] {
    const BeforeCall open(SystemCall::kOpen, [&] { opening.count_down(); });
    blocked = quen_io_FileWriter__openPath(unread.c_str(), 0);
    EXPECT_EQ(raised(), "");
  });
  opening.wait();

  expectOthersUndisturbed();
  const Handle meanwhile = open(scratch / "other");
  const int reader = ::open(unread.c_str(), O_RDONLY | O_NONBLOCK);
  opener.join();

  EXPECT_EQ(blocked, meanwhile + 1);
  EXPECT_EQ(raisedByClosing(blocked), "");
  EXPECT_EQ(raisedByClosing(meanwhile), "");
  ::close(reader);
}

// Concurrent writers.

// The lines of a text, without their ends; every line has one.
std::vector<std::string> linesOf(const std::string& text) {
  EXPECT_TRUE(text.empty() || text.back() == '\n');
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(Writers, OfManyThreadsKeepTheirLinesWholeAndEachThreadsInOrder) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 150;
  const Handle handle = open(scratch / "file");
  // Some lines fit into the buffer, some are larger.
  const auto line = [](int thread, int round) {
    const int length = round % 10 == 0 ? 8300 : 10 + 30 * (round % 50);
    return std::to_string(thread) + " " + std::to_string(round) + " " +
           std::string(static_cast<std::size_t>(length), static_cast<char>('a' + thread));
  };

  together(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_EQ(raisedByWriting(handle, line(thread, round) + "\n"), "");
      if (round % 7 == thread) {
        EXPECT_EQ(raisedByFlushing(handle), "");
      }
    }
  });
  EXPECT_EQ(raisedByClosing(handle), "");

  const std::vector<std::string> lines = linesOf(contents(scratch / "file"));
  EXPECT_EQ(lines.size(), std::size_t{kThreads} * kRounds);
  std::array<int, kThreads> next{};
  for (const std::string& each : lines) {
    const auto thread = static_cast<std::size_t>(each[0] - '0');
    ASSERT_LT(thread, next.size());
    ASSERT_TRUE(each == line(static_cast<int>(thread), next[thread]++)) << each.substr(0, 20);
  }
}

TEST_F(Writers, OfManyThreadsOpenedAtOnceAreApart) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 100;
  std::vector<std::vector<Handle>> handles(kThreads);

  together(kThreads, [&](int thread) {
    const fs::path file = scratch / std::to_string(thread);
    for (int round = 0; round < kRounds; ++round) {
      const Handle handle = open(file, 1);
      handles[static_cast<std::size_t>(thread)].push_back(handle);
      EXPECT_EQ(raisedByWriting(handle, std::to_string(round) + "\n"), "");
      EXPECT_EQ(raisedByClosing(handle), "");
      expectClosed(handle);
    }
  });

  std::set<Handle> distinct;
  for (const std::vector<Handle>& own : handles) {
    EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
    distinct.insert(own.begin(), own.end());
  }
  EXPECT_EQ(distinct.size(), std::size_t{kThreads} * kRounds);
  for (int thread = 0; thread < kThreads; ++thread) {
    const auto lines = linesOf(contents(scratch / std::to_string(thread)));
    ASSERT_EQ(lines.size(), std::size_t{kRounds});
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_EQ(lines[static_cast<std::size_t>(round)], std::to_string(round));
    }
  }
}

// A write either precedes the close, and its text is in the file, or it loses the race and raises:
// the handle is unknown, or was looked up before the close and its file is closed.
TEST_F(Writers, ThatRaceACloseLoseNothingSilently) {
  constexpr int kWriters = 3;
  constexpr int kRounds = 300;

  for (int round = 0; round < kRounds; ++round) {
    const Handle handle = open(scratch / "file");
    EXPECT_EQ(raisedByWriting(handle, "before\n"), "");
    std::array<std::string, kWriters> raisedIn;

    together(kWriters + 1, [&](int thread) {
      if (thread == kWriters) {
        EXPECT_EQ(raisedByClosing(handle), "");
        return;
      }
      const std::string line = std::to_string(thread) + std::string(2000, 'x') + "\n";
      raisedIn[static_cast<std::size_t>(thread)] = raisedByWriting(handle, line);
    });

    std::vector<std::string> expected{"before"};
    for (std::size_t i = 0; i < raisedIn.size(); ++i) {
      if (raisedIn[i].empty()) {
        expected.push_back(std::to_string(i) + std::string(2000, 'x'));
      } else {
        EXPECT_TRUE(raisedIn[i] == kClosed || raisedIn[i] == kWriteFailed) << raisedIn[i];
      }
    }
    std::vector<std::string> lines = linesOf(contents(scratch / "file"));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "before");
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_TRUE(lines == expected);
    expectClosed(handle);
  }
}

TEST_F(Writers, ThatManyCloseAtOnceAreClosedOnce) {
  constexpr int kRounds = 100;

  for (int round = 0; round < kRounds; ++round) {
    const Handle handle = open(kDeviceWithoutSpace);
    EXPECT_EQ(raisedByWriting(handle, "few"), "");
    std::atomic<int> failed = 0;

    together(4, [&](int) {
      if (raisedByClosing(handle) == kCloseFailed) ++failed;
    });

    EXPECT_EQ(failed, 1);
  }
}

}  // namespace
