#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"

namespace fs = std::filesystem;
using namespace quen::tests;

namespace {

class WriteAtomic : public BoundaryTest {
 protected:
  static void publish(const fs::path& path, const char* content) {
    quen_data_internal_DocumentIndexStore__writeAtomic(path.c_str(), content);
  }
};

TEST_F(WriteAtomic, LeavesTheContentAndNothingElse) {
  publish(scratch / "index", "abc");

  EXPECT_EQ(contents(scratch / "index"), "abc");
  EXPECT_EQ(namesIn(scratch.path()), "index");
}

TEST_F(WriteAtomic, ReplacesTheWholeOfALongerFile) {
  publish(scratch.file("index", "something longer"), "abc");

  EXPECT_EQ(contents(scratch / "index"), "abc");
}

TEST_F(WriteAtomic, PublishesAnEmptyFileForAnEmptyText) {
  publish(scratch.file("index", "old"), "");

  EXPECT_EQ(contents(scratch / "index"), "");
}

TEST_F(WriteAtomic, EndsAtTheFirstNul) {
  publish(scratch / "index", "abc\0def");

  EXPECT_EQ(contents(scratch / "index"), "abc");
}

TEST_F(WriteAtomic, WritesLargeContentsOfAnyBytes) {
  std::string content;
  while (content.size() < 1'000'000) content += "\x01\xFF\r\n\x80";

  publish(scratch / "\xFF\n", content.c_str());

  EXPECT_EQ(contents(scratch / "\xFF\n"), content);
}

TEST_F(WriteAtomic, LeavesAReaderOfTheOldFileWithTheOldContent) {
  const fs::path index = scratch.file("index", "old");
  const int reader = open(index.c_str(), O_RDONLY);
  ASSERT_NE(reader, -1);

  publish(index, "new");

  std::array<char, 8> seen{};
  EXPECT_EQ(read(reader, seen.data(), seen.size()), 3);
  EXPECT_STREQ(seen.data(), "old");
  close(reader);
}

TEST_F(WriteAtomic, ReplacesALinkAndNotItsTarget) {
  const fs::path target = scratch.file("target", "kept");
  const fs::path link = scratch.link("link", target);

  publish(link, "new");

  EXPECT_FALSE(fs::is_symlink(link));
  EXPECT_EQ(contents(link), "new");
  EXPECT_EQ(contents(target), "kept");
}

TEST_F(WriteAtomic, RaisesWithoutAPathOrContent) {
  const std::string required = "IOException: Document index path and content are required";

  publish("", "abc");
  EXPECT_EQ(raised(), required);
  quen_data_internal_DocumentIndexStore__writeAtomic(nullptr, "abc");
  EXPECT_EQ(raised(), required);
  publish(scratch / "index", nullptr);
  EXPECT_EQ(raised(), required);
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(WriteAtomic, RaisesInAMissingFolderAndMakesNone) {
  publish(scratch / "missing/index", "abc");

  EXPECT_EQ(raised(), "IOException: Cannot create temporary document index");
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(WriteAtomic, RaisesWhereNoFileMayBeMade) {
  const fs::path index = scratch.file("index", "old");
  fs::permissions(scratch.path(), fs::perms(0555));  // the folder of an ordinary user is their own

  inUnprivilegedChild([&] {
    publish(index, "new");
    EXPECT_EQ(raised(), "IOException: Cannot create temporary document index");
  });
  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(contents(index), "old");
  EXPECT_EQ(namesIn(scratch.path()), "index");
}

// The temporary's name is longer by its suffix, so it exceeds NAME_MAX first.
TEST_F(WriteAtomic, RaisesForANameThatLeavesNoRoomForTheSuffix) {
  publish(scratch / std::string(255, 'n'), "abc");

  EXPECT_EQ(raised(), "IOException: Cannot create temporary document index");
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(WriteAtomic, RaisesOverAFolderAndRemovesTheTemporary) {
  scratch.folder("index");
  scratch.file("index/kept");

  publish(scratch / "index", "abc");

  EXPECT_EQ(raised(), "IOException: Cannot atomically publish document index");
  EXPECT_EQ(namesIn(scratch.path()), "index");
  EXPECT_EQ(namesIn(scratch / "index"), "kept");
}

// RLIMIT_FSIZE makes writes fail as on a full disk.
TEST_F(WriteAtomic, RaisesOnAFullDiskKeepsTheTargetAndRemovesTheTemporary) {
  const fs::path index = scratch.file("index", "old");

  for (const std::size_t size : {std::size_t{5'000}, std::size_t{100'000}}) {
    inChild([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{4096, 4096};
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);

      publish(index, std::string(size, 'x').c_str());

      EXPECT_EQ(raised(), "IOException: Cannot write temporary document index");
      EXPECT_EQ(namesIn(scratch.path()), "index");
    });
  }
  EXPECT_EQ(contents(index), "old");
}

// A folder of the temporary's name makes opening it fail, which shows the number in the name.
TEST_F_IN_FRESH_PROCESS(WriteAtomic, CountsItsTemporariesFromOneAndUsesANumberUpAlsoWhenItFails) {
  const fs::path index = scratch / "index";
  scratch.folder("index.tmp-1");
  scratch.folder("index.tmp-3");

  publish(index, nullptr);
  EXPECT_EQ(raised(), "IOException: Document index path and content are required");
  publish(index, "one");
  EXPECT_EQ(raised(), "IOException: Cannot create temporary document index");
  publish(index, "two");
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(index), "two");
  publish(index, "three");
  EXPECT_EQ(raised(), "IOException: Cannot create temporary document index");

  fs::remove(scratch / "index.tmp-1");
  fs::remove(scratch / "index.tmp-3");
}

// Two publishers of one target can use the same temporary name; the second empties it.
TEST_F_IN_FRESH_PROCESS(WriteAtomic, EmptiesALeftOverTemporaryFirst) {
  scratch.file("index.tmp-1", "something longer that somebody left");

  publish(scratch / "index", "abc");

  EXPECT_EQ(contents(scratch / "index"), "abc");
  EXPECT_EQ(namesIn(scratch.path()), "index");
}

// The text fits into the filebuf's buffer, so only the flush reports that the device is full.
TEST_F_IN_FRESH_PROCESS(WriteAtomic, NoticesAFullDeviceForAFewBytes) {
  scratch.file("index", "old");
  scratch.link("index.tmp-1", "/dev/full");

  publish(scratch / "index", "abc");

  EXPECT_EQ(raised(), "IOException: Cannot write temporary document index");
  EXPECT_EQ(contents(scratch / "index"), "old");
  EXPECT_EQ(namesIn(scratch.path()), "index");
}

}  // namespace
