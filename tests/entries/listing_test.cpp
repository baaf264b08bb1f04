#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class Listing : public BoundaryTest {
 protected:
  static std::vector<std::string> namesOf(const std::string& folder) {
    void* list = quen_io_FolderPath__listNamesNative(folder.c_str());
    EXPECT_EQ(className(list), "quen.collections.ArrayList");
    return listStrings(list);
  }

  static std::vector<std::string> sortedNamesOf(const std::string& folder) {
    std::vector<std::string> names = namesOf(folder);
    std::sort(names.begin(), names.end());
    return names;
  }
};

using Names = std::vector<std::string>;

TEST_F(Listing, NamesEveryEntryOfEveryKindOnce) {
  scratch.file(".hidden");
  scratch.file("a");
  scratch.folder("b");
  scratch.file("b/below");
  scratch.link("c", "nowhere");
  ASSERT_EQ(mkfifo((scratch / "d").c_str(), 0600), 0);

  EXPECT_EQ(sortedNamesOf(scratch.path()), (Names{".hidden", "a", "b", "c", "d"}));
}

TEST_F(Listing, FollowsTheOrderOfTheSystem) {
  for (const char* name : {"z", "y", "x", "w", "v"}) scratch.file(name);
  Names inOrder;
  for (const fs::directory_entry& entry : fs::directory_iterator(scratch.path())) {
    inOrder.push_back(entry.path().filename());
  }

  EXPECT_EQ(namesOf(scratch.path()), inOrder);
}

TEST_F(Listing, OfAnEmptyFolderIsEmpty) { EXPECT_EQ(namesOf(scratch.path()), Names{}); }

TEST_F(Listing, OfAnEmptyPathIsEmpty) {
  EXPECT_EQ(namesOf(""), Names{});
  EXPECT_TRUE(listElements(quen_io_FolderPath__listNamesNative(nullptr)).empty());
}

TEST_F(Listing, FollowsALinkToTheFolderItself) {
  scratch.folder("folder");
  scratch.file("folder/a");
  scratch.link("link", scratch / "folder");

  EXPECT_EQ(namesOf(scratch / "link"), Names{"a"});
}

TEST_F(Listing, KeepsNamesOfAnyBytes) {
  const std::set<std::string> names{"\xFF\xFE", "new\nline", "\x1B[31m",           " ",
                                    "...",      "\xC3\xA9",  std::string(255, 'n')};
  for (const std::string& name : names) scratch.file(name);

  const Names listed = namesOf(scratch.path());
  EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), names);
  EXPECT_EQ(listed.size(), names.size());
}

TEST_F(Listing, OfManyEntriesIsComplete) {
  constexpr int kMany = 5000;
  for (int i = 0; i < kMany; ++i) scratch.file(std::to_string(i));

  const Names listed = namesOf(scratch.path());
  EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()).size(), std::size_t{kMany});
}

TEST_F(Listing, RecordsTheKindOfEachEntryUnderTheFoldersOwnSpelling) {
  scratch.file("file");
  scratch.folder("folder");
  scratch.link("link", scratch / "folder");
  scratch.link("dangling", "nowhere");
  ASSERT_EQ(mkfifo((scratch / "fifo").c_str(), 0600), 0);
  const std::string spelled = scratch.path().native() + "/./";

  namesOf(spelled);

  EXPECT_EQ(recordedKind(spelled + "file"), QuenPathEntryKind::kRegularFile);
  EXPECT_EQ(recordedKind(spelled + "folder"), QuenPathEntryKind::kDirectory);
  EXPECT_EQ(recordedKind(spelled + "link"), QuenPathEntryKind::kDirectory);
  EXPECT_EQ(recordedKind(spelled + "dangling"), kMissingEntry);
  EXPECT_EQ(recordedKind(spelled + "fifo"), kOtherEntry);
}

TEST_F(Listing, RaisesAndIsEmptyForWhatIsNoFolder) {
  const fs::path file = scratch.file("file");
  for (const std::string folder :
       {scratch / "missing", file, file / "below", fs::path(std::string(5000, 'x')),
        scratch.link("dangling", "nowhere"), scratch.link("loop", scratch / "loop")}) {
    SCOPED_TRACE(folder);
    EXPECT_EQ(namesOf(folder), Names{});
    EXPECT_EQ(raised(), "IOException: Cannot enumerate directory");
  }
}

TEST_F(Listing, OfAFolderThatMayNotBeReadIsEmpty) {
  fs::permissions(scratch.path(), fs::perms::all);
  scratch.folder("closed");
  scratch.file("closed/a");
  fs::permissions(scratch / "closed", fs::perms::none);

  inUnprivilegedChild([this] {
    EXPECT_EQ(namesOf(scratch / "closed"), Names{});
    EXPECT_EQ(raised(), "");
  });
  fs::permissions(scratch / "closed", fs::perms::owner_all);
}

// Denied permission is silent until the first entry, as with
// directory_options::skip_permission_denied; afterwards it is an error like any other.
TEST_F(Listing, ThatIsDeniedAfterTheFirstEntryRaises) {
  for (const char* name : {"a", "b", "c"}) scratch.file(name);
  constexpr int kDots = 2;
  for (int delivered = 0; delivered <= 5; ++delivered) {
    SCOPED_TRACE(delivered);
    const FailingFolder failing(delivered, EACCES);

    const Names names = namesOf(scratch.path());

    // "." and ".." come first on no file system for sure.
    EXPECT_LE(names.size(), static_cast<std::size_t>(delivered));
    EXPECT_GE(static_cast<int>(names.size()), delivered - kDots);
    EXPECT_EQ(raised(), names.empty() ? "" : "IOException: Cannot enumerate directory");
  }
}

TEST_F(Listing, ThatBreaksOffRaisesAndHasTheNamesUntilThen) {
  for (const char* name : {"a", "b", "c"}) scratch.file(name);
  for (int delivered = 0; delivered <= 5; ++delivered) {
    const FailingFolder failing(delivered, EIO);
    EXPECT_LE(namesOf(scratch.path()).size(), static_cast<std::size_t>(delivered));
    EXPECT_EQ(raised(), "IOException: Cannot enumerate directory") << delivered;
  }
}

// readdir works with read permission, but stat of an entry needs search permission.
TEST_F(Listing, OfAFolderThatMayBeReadButNotSearchedHasItsNames) {
  fs::permissions(scratch.path(), fs::perms::all);
  scratch.folder("readable");
  scratch.file("readable/a");
  fs::permissions(scratch / "readable", fs::perms::owner_read | fs::perms::others_read);

  inUnprivilegedChild([this] {
    EXPECT_EQ(namesOf(scratch / "readable"), Names{"a"});
    EXPECT_EQ(raised(), "");
    EXPECT_EQ(recordedKind(scratch / "readable/a"), kMissingEntry);
  });
  fs::permissions(scratch / "readable", fs::perms::owner_all);
}

}  // namespace
