// What may happen in the middle of a listing, in an operation of the runtime: an exception, the end
// of the thread, a program that is executed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <new>
#include <set>
#include <string>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/standard_library.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class ListingInterference : public BoundaryTest {
 protected:
  ListingInterference() {
    scratch.file("a");
    scratch.file("b");
  }

  void whenAsked(const std::string& operation, std::function<void()> step) {
    recorder.interfere = [=](const std::string& name) {
      if (name == operation) step();
    };
  }

  void list() const { quen_io_FolderPath__listNamesNative(scratch.path().c_str()); }

  quen::recording::Recorder recorder;
};

TEST_F(ListingInterference, AnExceptionLeavesNoFolderOpen) {
  const auto before = openFiles();
  whenAsked("Quen_cachePathEntryKind", [] { throw std::bad_alloc(); });

  list();

  EXPECT_EQ(raised(), std::string("IOException: ") + std::bad_alloc().what());
  EXPECT_EQ(openFiles(), before);
}

TEST_F(ListingInterference, TheOpenFolderIsClosedOnExec) {
  int found = 0;
  whenAsked("Quen_pathEntryKind", [&] {
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (fs::read_symlink(entry.path(), gone) != scratch.path()) continue;
      ++found;
      const int descriptor = std::stoi(entry.path().filename());
      EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
  });

  list();

  EXPECT_EQ(found, 2) << "once for each entry";
}

// The C library ends such a thread by an exception that must not be caught for good.
TEST_F(ListingInterference, AThreadThatIsCancelledEndsAndLeavesNoFolderOpen) {
  if (kSanitized) GTEST_SKIP() << "GCC binds a null reference in the handler of a forced unwind";
  if (kLibcxx) GTEST_SKIP() << "libc++ cannot rethrow a forced unwind; the module delays it";
  const auto before = openFiles();
  whenAsked("Quen_pathEntryKind", [] {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  });

  pthread_t thread{};
  std::string folder = scratch.path();
  const auto run = [](void* text) -> void* {
    return quen_io_FolderPath__listNamesNative(static_cast<std::string*>(text)->c_str());
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, run, &folder), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);

  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(recorder.raises(), 0);
  EXPECT_EQ(openFiles(), before);
}

// The one path whose last name is replaced is like a new one, element by element.
TEST_F(ListingInterference, ThePathOfEveryEntryIsWholeAndSpelledAsTheFolder) {
  scratch.folder("folder");
  for (const char* name : {"x", "a name that is longer than that", ".hidden", "..."}) {
    scratch.file(std::string("folder/") + name);
  }
  for (const std::string suffix :
       {"/folder", "/folder/", "/folder//", "//folder/.", "/folder/../folder"}) {
    const std::string spelled = scratch.path().native() + suffix;
    std::set<std::string> expected;
    for (const fs::directory_entry& entry : fs::directory_iterator(spelled)) {
      expected.insert("Quen_pathEntryKind(\"" + entry.path().native() + "\") -> 1");
    }
    quen::recording::Recorder again;
    quen_io_FolderPath__listNamesNative(spelled.c_str());

    std::set<std::string> asked;
    for (const std::string& call : again.calls()) {
      if (call.starts_with("Quen_pathEntryKind")) asked.insert(call);
    }
    EXPECT_EQ(asked, expected);
  }
}

}  // namespace
