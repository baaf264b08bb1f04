// Many threads call the module and the small runtime at once. Data races are found under the thread
// sanitizer; other builds only check the results.

#include "tests/support/threads.h"

#include <gtest/gtest.h>

#include <string>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

using Threads = BoundaryTest;

constexpr int kThreads = 8;
constexpr int kRounds = 200;

// Runs the body kRounds times on each of kThreads threads, all released at the same time.
template <class Body>
void onAllThreads(const Body& body) {
  together(kThreads, [&body](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const Scope objectsOfThisRound;
      body(thread, round);
    }
  });
}

TEST_F(Threads, ListQueryAndReadTheSameFolder) {
  const fs::path file = scratch.file("shared.txt", "h\xC3\xA9llo");
  scratch.folder("folder");

  onAllThreads([&](int, int) {
    EXPECT_EQ(listStrings(quen_io_FolderPath__listNamesNative(scratch.path().c_str())).size(), 2u);
    EXPECT_EQ(recordedKind(file), QuenPathEntryKind::kRegularFile);
    EXPECT_TRUE(quen_io_Path__isRegular(newPath(file.native())));
    EXPECT_EQ(stringBytes(quen_io_FileReader__readAllTextPath(file.c_str())), "h\xC3\xA9llo");
  });
}

TEST_F(Threads, RaiseAndTakeTheirOwnExceptions) {
  onAllThreads([&](int thread, int round) {
    const std::string message = std::to_string(thread) + "/" + std::to_string(round);
    Quen_raise("IOException", message.c_str());
    EXPECT_EQ(takeException()->message, message);
  });
}

TEST_F(Threads, ShareAScopeItsObjectsAndTheirContents) {
  void* list = Quen_allocObject("ArrayList");
  void* array = newByteArray(4);
  void* path = newPath("before");

  onAllThreads([&](int, int) {
    const Scope joined(&scope);
    quen_collections_ArrayList_add(list, newString("element"));
    Quen_setField_ptr(path, "_path", newString("after"));
    EXPECT_NE(Quen_filePathFromObject(path), nullptr);
    EXPECT_TRUE(hasObjectMagic(path));

    std::string error;
    const std::vector<std::uint8_t> bytes{1, 2, 3, 4};
    EXPECT_TRUE(Quen_writeByteArrayData(array, bytes.data(), bytes.size(), error));
    EXPECT_EQ(byteArrayContents(array).size(), 4u);
  });

  EXPECT_EQ(listElements(list).size(), static_cast<std::size_t>(kThreads) * kRounds);
  EXPECT_EQ(listStrings(list).back(), "element");
  EXPECT_EQ(pathText(path), "after");
}

TEST_F(Threads, DefineClassesWhileOthersMakeObjects) {
  onAllThreads([&](int thread, int round) {
    const std::string name = "app.T" + std::to_string(thread) + "R" + std::to_string(round);
    EXPECT_TRUE(defineClass(name, "quen.io.Path", {}));
    EXPECT_NE(Quen_isInstanceOf(newObject(name), "Path"), 0);
  });
}

TEST_F(Threads, PublishTheSameIndexWhole) {
  const fs::path index = scratch / "index";
  const auto version = [](int thread) {
    return std::string(10'000, static_cast<char>('a' + thread));
  };

  onAllThreads([&](int thread, int) {
    quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), version(thread).c_str());
    EXPECT_FALSE(takeException().has_value());
    const std::string seen = stringBytes(quen_io_FileReader__readAllTextPath(index.c_str()));
    EXPECT_EQ(seen, version(seen.empty() ? 0 : seen[0] - 'a'));
  });
}

}  // namespace
