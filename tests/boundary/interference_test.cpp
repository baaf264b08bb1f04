// What happens while an operation of the runtime runs, which no call trace shows: a C++ exception
// that it throws, and what is on disk at that moment.

#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class Interference : public BoundaryTest {
 protected:
  quen::recording::Recorder recorder;
};

class SilentFailure : public std::exception {
 public:
  const char* what() const noexcept override { return ""; }
};

class NullFailure : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

// Two entries, so that one name has been gathered when the second fails.
TEST_F(Interference, AnOperationThatThrowsWhileListingBecomesAnExceptionWithItsWords) {
  struct Case {
    std::function<void()> fail;
    std::string raises;
  };
  const std::vector<Case> cases{
      {[] { throw std::runtime_error("in so many words"); }, "in so many words"},
      {[] { throw std::bad_alloc(); }, std::bad_alloc().what()},
      {[] { throw SilentFailure(); }, "Cannot enumerate directory"},
      {[] { throw NullFailure(); }, "Cannot enumerate directory"},
      {[] { throw 42; }, "Cannot enumerate directory"},
  };
  scratch.file("a");
  scratch.file("b");

  for (const std::string operation :
       {"Quen_pathEntryKind", "Quen_cachePathEntryKind", "Quen_visiblePathString",
        "Quen_allocString", "quen_collections_ArrayList_add"}) {
    for (const Case& each : cases) {
      SCOPED_TRACE(operation + " " + each.raises);
      quen::recording::Recorder again;
      int asked = 0;
      again.interfere = [&](const std::string& name) {
        if (name == operation && ++asked == 2) each.fail();
      };

      void* names = quen_io_FolderPath__listNamesNative(scratch.path().c_str());

      EXPECT_EQ(raised(), "IOException: " + each.raises);
      EXPECT_EQ(listElements(names).size(), 1u);
      EXPECT_EQ(again.raises(), 1);
    }
  }
}

TEST_F(Interference, AConversionThatThrowsWhileListingLeavesAnEmptyList) {
  recorder.interfere = [](const std::string& operation) {
    if (operation == "Quen_runtimeFsPath") throw std::length_error("too long");
  };

  void* names = quen_io_FolderPath__listNamesNative(scratch.path().c_str());

  EXPECT_EQ(raised(), "IOException: too long");
  EXPECT_EQ(listElements(names).size(), 0u);
}

// The list itself is made outside of what is guarded.
TEST_F(Interference, AListThatCannotBeMadeThrowsOutOfTheEntryPoint) {
  recorder.interfere = [](const std::string& operation) {
    if (operation == "Quen_allocObject") throw std::bad_alloc();
  };

  EXPECT_THROW(quen_io_FolderPath__listNamesNative("/"), std::bad_alloc);
}

TEST_F(Interference, AFailedPublicationRaisesAfterTheTemporaryIsRemoved) {
  const fs::path index = scratch.folder("index");
  std::string seenAtTheRaise;
  recorder.interfere = [&](const std::string& operation) {
    if (operation == "Quen_raise") seenAtTheRaise = namesIn(scratch.path());
  };

  quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), "content");

  EXPECT_EQ(raised(), "IOException: Cannot atomically publish document index");
  EXPECT_EQ(seenAtTheRaise, "index");
}

}  // namespace
