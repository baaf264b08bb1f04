// The checks themselves, with a host and an entry point made up for each case: the host's
// operations are those of the small runtime, but for what a test puts in place of them.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "runtime/checked/call.h"
#include "runtime/checked/host.h"
#include "runtime/small/host.h"
#include "runtime/small/operations.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;
namespace small = quen::small;
namespace operations = quen::small::operations;
using quen::checked::Call;

namespace {

// What an operation does first.
struct Interference {
  std::function<void()> inAllocString;
  std::function<void()> inRaise;
};

Interference gInterference;

void interfere(const std::function<void()>& doing) {
  if (doing) doing();
}

}  // namespace

namespace quen::checked::host {

decltype(&::Quen_runtimeFsPath) const runtimeFsPath = operations::runtimeFsPath;
decltype(&::Quen_visiblePathString) const visiblePathString = operations::visiblePathString;
decltype(&::Quen_allocPathString) const allocPathString = operations::allocPathString;
decltype(&::Quen_allocTypedPathObjectFromPath) const allocTypedPathObjectFromPath =
    operations::allocTypedPathObjectFromPath;
decltype(&::Quen_filePathFromObject) const filePathFromObject = operations::filePathFromObject;
decltype(&::Quen_pathHasExplicitWindowsRoot) const pathHasExplicitWindowsRoot =
    operations::pathHasExplicitWindowsRoot;
decltype(&::Quen_pathEntryKind) const pathEntryKind = operations::pathEntryKind;
decltype(&::Quen_cachePathEntryKind) const cachePathEntryKind = operations::cachePathEntryKind;
decltype(&::Quen_pathExists) const pathExists = operations::pathExists;
decltype(&::Quen_allocString) const allocString = [](const std::string& bytes) {
  interfere(gInterference.inAllocString);
  return operations::allocString(bytes);
};
decltype(&::Quen_readByteArrayData) const readByteArrayData = operations::readByteArrayData;
decltype(&::Quen_writeByteArrayData) const writeByteArrayData = operations::writeByteArrayData;
decltype(&::hasObjectMagic) const hasObjectMagic = operations::hasObjectMagic;
decltype(&::Quen_allocObject) const allocObject = operations::allocObject;
decltype(&::Quen_getField_i64) const getFieldI64 = operations::getFieldI64;
decltype(&::Quen_setField_ptr) const setFieldPtr = operations::setFieldPtr;
decltype(&::Quen_isInstanceOf) const isInstanceOf = operations::isInstanceOf;
decltype(&::quen_collections_ArrayList_add) const addToArrayList = operations::addToArrayList;
decltype(&::Quen_raise) const raise = [](const char* exceptionClass, const char* message) {
  interfere(gInterference.inRaise);
  operations::raise(exceptionClass, message);
};
decltype(&::Quen_hasPendingError) const hasPendingError = operations::hasPendingError;

}  // namespace quen::checked::host

namespace {

// A text whose last page is followed by one that cannot be read.
class TextAtAnEnd {
 public:
  explicit TextAtAnEnd(std::size_t length)
      : pages_(static_cast<char*>(
            mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    mprotect(pages_ + kPage, kPage, PROT_NONE);
    text_ = pages_ + kPage - length;
    std::fill_n(text_, length, 'x');
  }

  ~TextAtAnEnd() { munmap(pages_, 2 * kPage); }
  TextAtAnEnd(const TextAtAnEnd&) = delete;
  TextAtAnEnd& operator=(const TextAtAnEnd&) = delete;

  char* text() const { return text_; }

 private:
  static constexpr std::size_t kPage = std::size_t{64} * 1024;

  char* pages_;
  char* text_ = nullptr;
};

class Checks : public testing::Test {
 protected:
  // Settings are read once in a process, so that each death test needs one of its own.
  Checks() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  ~Checks() override {
    gInterference = {};
    small::takeException();
  }

  // What is reported while an entry point of this name does the work.
  template <class Work>
  static std::string reported(const char* entryPoint, Work work) {
    testing::internal::CaptureStderr();
    {
      Call call(entryPoint);
      try {
        call.run(
            +[](Work* given, Call* itself) { (*given)(*itself); }, &work, &call);
      } catch (const std::exception&) {
        // What leaves an entry point is the host's business.
      }
    }
    return testing::internal::GetCapturedStderr();
  }

  small::Scope scope;
};

TEST_F(Checks, ReportNothingOfARuntimeWithoutAMistake) {
  EXPECT_EQ(reported("right",
                     [](Call& call) {
                       call.takesText("path", "a/b");
                       call.takesObject("self", small::newPath("a"));
                       Quen_allocString("a");
                       Quen_raise("IOException", "Cannot open file");
                       Quen_allocString("");
                     }),
            "");
}

TEST_F(Checks, NoticeATextThatChangesWhileTheEntryPointRuns) {
  std::string text = "a text";
  gInterference.inAllocString = [&] { text[0] = 'A'; };

  EXPECT_EQ(reported("changing",
                     [&](Call& call) {
                       call.takesText("path", text.c_str());
                       Quen_allocString("a");
                     }),
            "quen_io_checked: changing: path changed before the entry point returned, while it "
            "called Quen_allocString\n");
}

TEST_F(Checks, NoticeATextThatIsFreedWhileTheEntryPointRuns) {
  if (quen::tests::kSanitized) GTEST_SKIP() << "it reports the freed text itself";
  auto* text = static_cast<char*>(std::malloc(100));
  std::fill_n(text, 100, 'x');
  text[99] = '\0';

  const std::string lines = reported("freeing", [&](Call& call) {
    call.watch("path", text, "changed");
    std::free(text);
  });

  EXPECT_EQ(lines, "quen_io_checked: freeing: path changed\n");
}

TEST_F(Checks, NoticeATextWithoutItsNulBeforeMemoryThatCannotBeRead) {
  const TextAtAnEnd endless(20);
  const TextAtAnEnd ended(20);
  ended.text()[19] = '\0';

  EXPECT_EQ(reported("reading", [&](Call& call) { call.takesText("path", endless.text()); }),
            "quen_io_checked: reading: path has no NUL before memory that cannot be read\n");
  EXPECT_EQ(reported("reading", [&](Call& call) { call.takesText("path", ended.text()); }), "");
}

TEST_F(Checks, NoticeAnOperationOnAThreadThatIsInNoEntryPoint) {
  testing::internal::CaptureStderr();

  Quen_allocString("a");

  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "quen_io_checked: no entry point: Quen_allocString was called on a thread that is in no "
      "entry point\n");
}

TEST_F(Checks, NoticeAnExceptionOfAnOperationOnceAndLetItPass) {
  gInterference.inAllocString = [] { throw std::runtime_error("in so many words"); };

  EXPECT_EQ(reported("throwing", [](Call&) { Quen_allocString("a"); }),
            "quen_io_checked: throwing: Quen_allocString threw the C++ exception \"in so many "
            "words\"\n");
}

TEST_F(Checks, LetExhaustedMemoryPass) {
  gInterference.inAllocString = [] { throw std::bad_alloc(); };

  EXPECT_EQ(reported("exhausted", [](Call&) { Quen_allocString("a"); }), "");
}

TEST_F(Checks, NoticeAnExceptionThatLeavesTheEntryPoint) {
  EXPECT_EQ(reported("leaving", [](Call&) { throw std::logic_error("why"); }),
            "quen_io_checked: leaving: the entry point was left by the C++ exception \"why\"\n");
}

TEST_F(Checks, NoticeAnExceptionFromBeforeTheCall) {
  operations::raise("IOException", "left by an earlier call");

  EXPECT_EQ(reported("pending", [](Call&) {}),
            "quen_io_checked: pending: Quen_hasPendingError tells of an exception from before the "
            "call\n");
}

TEST_F(Checks, NoticeACallOfTheModuleFromARaise) {
  gInterference.inRaise = [] { const Call inner("inner"); };

  EXPECT_EQ(reported("outer", [](Call&) { Quen_raise("IOException", "message"); }),
            "quen_io_checked: inner: Quen_raise called the module, from outer\n");
}

TEST_F(Checks, StopACallThatWouldWaitForALockOfItsOwnThread) {
  gInterference.inRaise = [] { const Call inner("quen_io_FileWriter__closeHandle"); };

  EXPECT_EXIT(
      {
        Call call("quen_io_FileWriter__flushHandle");
        Quen_raise("IOException", "File writer is closed");
      },
      testing::KilledBySignal(SIGABRT),
      "closeHandle: stopped: it would wait forever for a lock that the thread holds");
}

TEST_F(Checks, EndTheProcessAtTheFirstFindingWhenToldTo) {
  EXPECT_EXIT(
      {
        setenv("QUEN_IO_CHECKED", "abort", 1);
        Quen_allocString("a");
      },
      testing::KilledBySignal(SIGABRT), "Quen_allocString was called on a thread");
}

TEST_F(Checks, AskTheHostNothingWhenPassive) {
  EXPECT_EXIT(
      {
        setenv("QUEN_IO_CHECKED", "passive", 1);
        int calls = 0;
        gInterference.inAllocString = [&] { ++calls; };
        operations::raise("IOException", "pending, which would be asked for");
        {
          Call call("passive");
          call.takesText("path", "a");
          Quen_allocString("a");
        }
        std::exit(calls);
      },
      testing::ExitedWithCode(1), "^$");
}

}  // namespace
