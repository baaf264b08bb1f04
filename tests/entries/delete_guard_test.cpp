// These tests cannot remove anything outside a scratch folder: roots are only passed to the guard,
// or removed by a child whose root directory is a scratch folder (chroot).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/threads.h"

namespace fs = std::filesystem;
using namespace quen::tests;

namespace {

constexpr const char* kRefused =
    "IOException: Recursive deletion rejects unsafe root or parent traversal";
constexpr const char* kFailed = "IOException: Cannot remove directory recursively";

const std::vector<std::string> kRoots{"/", "//", "///", "/.", "/./", "//.", "/./.", "/.//./"};

const std::vector<std::string> kParentSegments{
    "..",       "../",   "/..",      "../x", "x/..",     "a/../b",   "/a/b/../c",
    "a/b/..//", "..\\x", "x\\..",    "..\\", "a\\..\\b", "/a\\../b", "a/..\\b",
    "../..",    "\\..",  ".../../x", "./..", "a//..//b",
};

const std::vector<std::string> kNoParentSegments{
    "...", ".../x", "x/...", "..x", "x..", "a/..b/c", "a/b..", ". .", "a\\b", "...\\x", ".hidden",
};

class Guard : public BoundaryTest {
 protected:
  static bool isUnsafe(const fs::path& path) {
    const bool answer = Quen_isUnsafeRecursiveDeletePath(path.c_str());
    EXPECT_EQ(raised(), "") << "asked about " << path;
    return answer;
  }

  // The guard reads the variables at its first call, so this is for a fresh process.
  static void setHomes(const std::string& quenHome, const std::string& home) {
    ASSERT_EQ(setenv("QUEN_HOME", quenHome.c_str(), 1), 0);
    ASSERT_EQ(setenv("HOME", home.c_str(), 1), 0);
  }

  // Changes to a working directory and removes it, so that getcwd fails.
  void removeWorkingDirectory() const {
    fs::current_path(scratch.folder("gone"));
    fs::remove(scratch / "gone");
  }
};

// Refused whatever the homes are.

TEST_F(Guard, RefusesAnEmptyPath) {
  EXPECT_TRUE(Quen_isUnsafeRecursiveDeletePath(nullptr));
  EXPECT_TRUE(Quen_isUnsafeRecursiveDeletePath(""));
  EXPECT_EQ(raised(), "");
}

TEST_F(Guard, RefusesTheRoot) {
  for (const std::string& root : kRoots) EXPECT_TRUE(isUnsafe(root)) << root;
}

TEST_F(Guard, RefusesTheRootAsTheWorkingDirectory) {
  inChild([] {
    fs::current_path("/");
    EXPECT_TRUE(isUnsafe("."));
    EXPECT_TRUE(isUnsafe("./"));
    EXPECT_TRUE(isUnsafe("././/."));
  });
}

TEST_F(Guard, RefusesEveryParentSegment) {
  scratch.folder("a");
  scratch.folder("b");

  for (const std::string& path : kParentSegments) EXPECT_TRUE(isUnsafe(path)) << path;
  EXPECT_TRUE(isUnsafe(scratch / "a/../b"));
}

TEST_F(Guard, TakesOnlyTwoDotsForAParentSegment) {
  for (const std::string& path : kNoParentSegments) {
    EXPECT_FALSE(isUnsafe(path)) << path;
    EXPECT_FALSE(isUnsafe(scratch / path)) << path;
  }
}

TEST_F(Guard, RefusesWhatCannotBeMadeAbsolute) {
  inChild([this] {
    removeWorkingDirectory();

    EXPECT_TRUE(isUnsafe("folder"));
    EXPECT_TRUE(isUnsafe("."));
    EXPECT_FALSE(isUnsafe(scratch / "folder"));
  });
}

// The homes.

TEST_F_IN_FRESH_PROCESS(Guard, RefusesTheHomeAndNothingAroundIt) {
  const fs::path home = scratch.folder("users/home");
  scratch.folder("users/home/inside");
  setHomes("", home);

  for (const char* spelling : {"users/home", "users/home/", "users//home", "users/./home",
                               "users/home/.", "./users/home//"}) {
    EXPECT_TRUE(isUnsafe(scratch / spelling)) << spelling;
  }
  for (const char* other : {"users/home/inside", "users/home/missing", "users", "users/",
                            "users/home2", "users/hom", "users/HOME", "users/home/home", "home"}) {
    EXPECT_FALSE(isUnsafe(scratch / other)) << other;
  }
  EXPECT_FALSE(isUnsafe(scratch.path()));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesTheHomeThroughLinks) {
  const fs::path home = scratch.folder("users/home");
  scratch.folder("users/home/inside");
  setHomes("", home);
  scratch.link("to home", home);
  scratch.link("to link", scratch / "to home");
  scratch.link("to users", scratch / "users");
  scratch.link("to inside", home / "inside");

  for (const char* refused : {"to home", "to home/", "to link", "to users/home"}) {
    EXPECT_TRUE(isUnsafe(scratch / refused)) << refused;
  }
  for (const char* other : {"to users", "to home/inside", "to inside"}) {
    EXPECT_FALSE(isUnsafe(scratch / other)) << other;
  }
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesWhatALinkAsTheHomeLeadsTo) {
  const fs::path home = scratch.folder("users/home");
  setHomes("", scratch.link("to home", home));

  EXPECT_TRUE(isUnsafe(home));
  EXPECT_TRUE(isUnsafe(scratch / "to home"));
  EXPECT_TRUE(isUnsafe(scratch.link("another", home)));
  EXPECT_FALSE(isUnsafe(scratch / "users"));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesTheHomeFromTheWorkingDirectory) {
  const fs::path home = scratch.folder("users/home");
  scratch.folder("users/home/inside");
  setHomes("", home);

  fs::current_path(scratch / "users");
  EXPECT_TRUE(isUnsafe("home"));
  EXPECT_TRUE(isUnsafe("./home/"));
  EXPECT_FALSE(isUnsafe("home/inside"));
  EXPECT_FALSE(isUnsafe("."));

  fs::current_path(home);
  EXPECT_TRUE(isUnsafe("."));
  EXPECT_TRUE(isUnsafe("./"));
  EXPECT_FALSE(isUnsafe("inside"));
  EXPECT_FALSE(isUnsafe("home"));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesBothHomes) {
  setHomes(scratch.folder("quen"), scratch.folder("home"));

  EXPECT_TRUE(isUnsafe(scratch / "quen"));
  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_FALSE(isUnsafe(scratch / "other"));
}

TEST_F_IN_FRESH_PROCESS(Guard, ReadsTheHomesOnceForAllThreads) {
  setHomes("", scratch.folder("first"));
  EXPECT_TRUE(isUnsafe(scratch / "first"));
  setHomes("", scratch.folder("second"));

  std::jthread([this] {
    EXPECT_TRUE(isUnsafe(scratch / "first"));
    EXPECT_FALSE(isUnsafe(scratch / "second"));
  }).join();
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesTheOneHomeThatBothVariablesName) {
  const fs::path home = scratch.folder("home");
  setHomes(scratch.link("link", home), home);

  EXPECT_TRUE(isUnsafe(home));
  EXPECT_TRUE(isUnsafe(scratch / "link"));
  EXPECT_FALSE(isUnsafe(scratch / "other"));
}

TEST_F_IN_FRESH_PROCESS(Guard, WithoutVariablesProtectsRootsOnly) {
  setHomes(scratch.folder("quen"), scratch.folder("home"));
  ASSERT_EQ(unsetenv("QUEN_HOME"), 0);
  ASSERT_EQ(unsetenv("HOME"), 0);

  EXPECT_FALSE(isUnsafe(scratch / "quen"));
  EXPECT_FALSE(isUnsafe(scratch / "home"));
  EXPECT_FALSE(isUnsafe("/root"));  // the user database is not consulted
  EXPECT_FALSE(isUnsafe("."));
  EXPECT_TRUE(isUnsafe("/"));
  EXPECT_TRUE(isUnsafe("a/../b"));
}

// An empty value does not stand for the working directory.
TEST_F_IN_FRESH_PROCESS(Guard, WithEmptyVariablesProtectsRootsOnly) {
  setHomes("", "");

  EXPECT_FALSE(isUnsafe(fs::current_path()));
  EXPECT_FALSE(isUnsafe("."));
  EXPECT_TRUE(isUnsafe("/"));
}

TEST_F_IN_FRESH_PROCESS(Guard, WithTheRootAsHomeProtectsNothingBelowIt) {
  setHomes("/", "/");

  EXPECT_TRUE(isUnsafe("/"));
  EXPECT_FALSE(isUnsafe("/missing"));
  EXPECT_FALSE(isUnsafe(scratch.path()));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesAHomeRightBelowTheRoot) {
  setHomes("", "/missing-home");

  EXPECT_TRUE(isUnsafe("/missing-home"));
  EXPECT_TRUE(isUnsafe("//missing-home"));
  EXPECT_FALSE(isUnsafe("/missing-home/inside"));
  EXPECT_FALSE(isUnsafe("/missing"));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesAHomeThatEndsInASeparator) {
  setHomes("", scratch.folder("home").native() + "/");

  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_TRUE(isUnsafe(scratch / "home/"));
}

// weakly_canonical keeps the trailing separator of a missing folder, so that the texts have to
// match.
TEST_F_IN_FRESH_PROCESS(Guard, RefusesAMissingHomeExactlyAsItIsSpelled) {
  setHomes(scratch / "quen/", scratch / "home");

  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_TRUE(isUnsafe(scratch / "./home"));
  EXPECT_FALSE(isUnsafe(scratch / "home/"));
  EXPECT_TRUE(isUnsafe(scratch / "quen/"));
  EXPECT_FALSE(isUnsafe(scratch / "quen"));
}

TEST_F_IN_FRESH_PROCESS(Guard, RefusesAMissingHomeBehindALink) {
  scratch.folder("users");
  setHomes("", scratch.link("link", scratch / "users") / "home");

  EXPECT_TRUE(isUnsafe(scratch / "link/home"));
  EXPECT_TRUE(isUnsafe(scratch / "users/home"));
  EXPECT_FALSE(isUnsafe(scratch / "users"));
}

// A ".." in a variable is resolved lexically: "link/.." is the folder that holds the link, not the
// parent of its target.
TEST_F_IN_FRESH_PROCESS(Guard, ResolvesAParentSegmentOfAVariableLexically) {
  scratch.folder("far/away");
  scratch.folder("far/home");
  scratch.folder("home");
  setHomes("", scratch.link("link", scratch / "far/away") / "../home");

  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_FALSE(isUnsafe(scratch / "far/home"));
}

TEST_F_IN_FRESH_PROCESS(Guard, ResolvesARelativeHomeAtTheFirstCall) {
  for (const char* folder : {"early", "first", "late"}) {
    scratch.folder(folder);
    scratch.folder(std::string(folder) + "/quen");
  }
  fs::current_path(scratch / "early");
  setHomes("quen", "");

  fs::current_path(scratch / "first");
  EXPECT_TRUE(isUnsafe("quen"));

  fs::current_path(scratch / "late");
  EXPECT_TRUE(isUnsafe(scratch / "first/quen"));
  EXPECT_FALSE(isUnsafe("quen"));
  EXPECT_FALSE(isUnsafe(scratch / "early/quen"));
}

TEST_F_IN_FRESH_PROCESS(Guard, LeavesOutARelativeHomeWithoutAWorkingDirectory) {
  setHomes("quen", scratch.folder("home"));

  removeWorkingDirectory();
  EXPECT_TRUE(isUnsafe(scratch / "home"));

  fs::current_path(scratch.path());
  EXPECT_FALSE(isUnsafe("quen"));
  EXPECT_TRUE(isUnsafe("home"));
}

// When the home has no canonical form, its lexically normal form is protected.
TEST_F_IN_FRESH_PROCESS(Guard, RefusesAHomeBehindALinkToItselfAsItIsSpelled) {
  const fs::path loop = scratch.link("loop", scratch / "loop");
  setHomes("", loop / "./home");

  EXPECT_TRUE(isUnsafe(loop / "home"));
  EXPECT_TRUE(isUnsafe(loop / "./home"));
  EXPECT_FALSE(isUnsafe(loop));
}

// Intended, although it looks like a gap: without a canonical form only the text is compared.
TEST_F_IN_FRESH_PROCESS(Guard, AllowsPathsWithoutACanonicalForm) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path closed = scratch.folder("closed");
  const fs::path alias = scratch.link("closed/alias", scratch.folder("home"));
  const fs::path loop = scratch.link("loop", scratch / "loop");
  setHomes("", scratch / "home");

  EXPECT_TRUE(isUnsafe(alias));
  EXPECT_FALSE(isUnsafe(loop));
  EXPECT_FALSE(isUnsafe(loop / "home"));

  fs::permissions(closed, fs::perms::none);
  inUnprivilegedChild([&] {
    EXPECT_FALSE(isUnsafe(alias));
    EXPECT_TRUE(isUnsafe(scratch / "home"));
  });
}

TEST_F_IN_FRESH_PROCESS(Guard, ReadsTheVariablesOnce) {
  setHomes(scratch.folder("quen"), scratch.folder("home"));
  EXPECT_FALSE(isUnsafe(scratch.folder("other")));

  setHomes(scratch.folder("new quen"), scratch.folder("new home"));

  EXPECT_TRUE(isUnsafe(scratch / "quen"));
  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_FALSE(isUnsafe(scratch / "new quen"));
  EXPECT_FALSE(isUnsafe(scratch / "new home"));
}

TEST_F_IN_FRESH_PROCESS(Guard, ResolvesTheHomeOnce) {
  const fs::path link = scratch.link("link", scratch.folder("old"));
  setHomes("", link);
  EXPECT_TRUE(isUnsafe(link));

  fs::remove(link);
  fs::create_symlink(scratch.folder("new"), link);

  EXPECT_TRUE(isUnsafe(scratch / "old"));
  EXPECT_FALSE(isUnsafe(scratch / "new"));
  EXPECT_FALSE(isUnsafe(link));
}

TEST_F_IN_FRESH_PROCESS(Guard, DoesNotReadTheVariablesForWhatIsRefusedAnyway) {
  setHomes(scratch.folder("early"), scratch.folder("early"));
  EXPECT_TRUE(Quen_isUnsafeRecursiveDeletePath(nullptr));
  EXPECT_TRUE(isUnsafe(""));
  for (const std::string& root : kRoots) EXPECT_TRUE(isUnsafe(root));
  for (const std::string& path : kParentSegments) EXPECT_TRUE(isUnsafe(path));
  removeWorkingDirectory();
  EXPECT_TRUE(isUnsafe("folder"));
  quen_io_FolderPath__removeAllNative("");
  EXPECT_EQ(raised(), "IOException: Path is empty");

  setHomes(scratch.folder("quen"), scratch.folder("home"));

  EXPECT_TRUE(isUnsafe(scratch / "quen"));
  EXPECT_TRUE(isUnsafe(scratch / "home"));
  EXPECT_FALSE(isUnsafe(scratch / "early"));
}

TEST_F_IN_FRESH_PROCESS(Guard, GivesConcurrentFirstCallsTheSameAnswers) {
  setHomes(scratch.folder("quen"), scratch.folder("home"));

  together(8, [this](int) {
    EXPECT_TRUE(isUnsafe(scratch / "quen"));
    EXPECT_TRUE(isUnsafe(scratch / "home"));
    EXPECT_FALSE(isUnsafe(scratch / "other"));
  });
}

// Recursive removal.

class RemoveAll : public Guard {
 protected:
  static std::string raisedByRemoving(const fs::path& path) {
    quen_io_FolderPath__removeAllNative(path.c_str());
    return raised();
  }

  // Runs the body in a child whose root directory is the folder, so that it cannot reach anything
  // else.
  static void inChroot(const fs::path& folder, const std::function<void()>& body) {
    inChild([&] {
      ASSERT_EQ(chroot(folder.c_str()), 0);
      ASSERT_EQ(chdir("/"), 0);
      body();
    });
  }
};

TEST_F(RemoveAll, TakesATreeOfEverything) {
  const fs::path tree = scratch.folder("tree");
  scratch.folder("tree/a/b/c");
  scratch.folder("tree/empty");
  scratch.file("tree/a/b/file", "content");
  scratch.file("tree/.hidden");
  scratch.file("tree/\xFF \n\\");
  scratch.file("tree/...");
  ASSERT_EQ(mkfifo((tree / "a/pipe").c_str(), 0600), 0);
  fs::permissions(scratch.file("tree/read only"), fs::perms(0400));
  scratch.file("neighbour", "kept");

  EXPECT_EQ(raisedByRemoving(tree), "");

  EXPECT_EQ(namesIn(scratch.path()), "neighbour");
  EXPECT_EQ(contents(scratch / "neighbour"), "kept");
}

TEST_F(RemoveAll, TakesADeepTree) {
  fs::path deep = scratch / "tree";
  for (int i = 0; i < 500; ++i) deep /= "d";
  fs::create_directories(deep);

  EXPECT_EQ(raisedByRemoving(scratch / "tree"), "");

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(RemoveAll, TakesLinksAndLeavesTheirTargets) {
  const fs::path tree = scratch.folder("tree");
  const fs::path file = scratch.file("file", "kept");
  const fs::path folder = scratch.folder("folder");
  scratch.file("folder/inside", "kept too");
  scratch.link("tree/to file", file);
  scratch.link("tree/to folder", folder);
  scratch.link("tree/to nowhere", scratch / "missing");
  scratch.link("tree/upwards", "..");

  EXPECT_EQ(raisedByRemoving(tree), "");

  EXPECT_EQ(namesIn(scratch.path()), "file folder");
  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(contents(folder / "inside"), "kept too");
}

TEST_F(RemoveAll, OfALinkTakesTheLinkAndLeavesItsTarget) {
  const fs::path folder = scratch.folder("folder");
  scratch.file("folder/inside", "kept");
  scratch.link("link", folder);
  scratch.link("dangling", scratch / "missing");
  scratch.link("loop", scratch / "loop");

  EXPECT_EQ(raisedByRemoving(scratch / "link"), "");
  EXPECT_EQ(raisedByRemoving(scratch / "dangling"), "");
  EXPECT_EQ(raisedByRemoving(scratch / "loop"), "");

  EXPECT_EQ(namesIn(scratch.path()), "folder");
  EXPECT_EQ(contents(folder / "inside"), "kept");
}

TEST_F(RemoveAll, OfAFileTakesTheFile) {
  EXPECT_EQ(raisedByRemoving(scratch.file("file", "content")), "");

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(RemoveAll, OfAPathFromTheWorkingDirectory) {
  scratch.folder("tree/a");
  scratch.folder("kept");

  inChild([this] {
    fs::current_path(scratch.path());
    EXPECT_EQ(raisedByRemoving("./tree/"), "");
  });

  EXPECT_EQ(namesIn(scratch.path()), "kept");
}

TEST_F(RemoveAll, OfAMissingPathDoesNothing) {
  EXPECT_EQ(raisedByRemoving(scratch / "missing"), "");
  EXPECT_EQ(raisedByRemoving(scratch / "missing/deeper"), "");
}

// Unlike for a missing path, the status query fails (ENOTDIR).
TEST_F(RemoveAll, OfAPathBelowAFileRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  EXPECT_EQ(raisedByRemoving(file / "x"), kFailed);

  EXPECT_EQ(contents(file), "kept");
}

TEST_F(RemoveAll, OfAnEmptyPathRaises) {
  quen_io_FolderPath__removeAllNative(nullptr);
  EXPECT_EQ(raised(), "IOException: Path is empty");
  EXPECT_EQ(raisedByRemoving(""), "IOException: Path is empty");
}

TEST_F(RemoveAll, WithAParentSegmentIsRefusedAndChangesNothing) {
  scratch.folder("a");
  scratch.folder("b");
  scratch.file("b/file", "kept");
  scratch.folder("a\\..\\b");

  EXPECT_EQ(raisedByRemoving(scratch / "a/../b"), kRefused);
  EXPECT_EQ(raisedByRemoving(scratch / "a\\..\\b"), kRefused);
  EXPECT_EQ(raisedByRemoving(scratch / "a/.."), kRefused);
  EXPECT_EQ(raisedByRemoving(scratch / "missing/../b"), kRefused);

  EXPECT_EQ(namesIn(scratch.path()), "a a\\..\\b b");
  EXPECT_EQ(contents(scratch / "b/file"), "kept");
}

TEST_F(RemoveAll, TakesNamesThatOnlyResembleAParentSegment) {
  for (const char* name : {"...", "..x", "x..", "a\\b"}) {
    EXPECT_EQ(raisedByRemoving(scratch.folder(name)), "") << name;
  }
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(RemoveAll, OfARootIsRefusedAndTouchesNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give a child another root";
  const fs::path newRoot = scratch.folder("root");
  scratch.folder("root/a/b");
  scratch.file("root/a/file", "kept");

  inChroot(newRoot, [] {
    for (const std::string& root : kRoots) EXPECT_EQ(raisedByRemoving(root), kRefused) << root;
    for (const std::string& path : kParentSegments) EXPECT_EQ(raisedByRemoving(path), kRefused);
    EXPECT_EQ(raisedByRemoving("."), kRefused);
  });

  EXPECT_EQ(contents(newRoot / "a/file"), "kept");
  EXPECT_EQ(namesIn(newRoot), "a");
  EXPECT_EQ(namesIn(newRoot / "a"), "b file");
}

TEST_F(RemoveAll, WithoutAnAbsoluteFormIsRefused) {
  inChild([this] {
    removeWorkingDirectory();
    EXPECT_EQ(raisedByRemoving("folder"), kRefused);
  });
}

TEST_F_IN_FRESH_PROCESS(RemoveAll, OfAHomeIsRefusedAndTouchesNothing) {
  const fs::path home = scratch.folder("home");
  const fs::path quen = scratch.folder("quen");
  scratch.file("home/file", "kept");
  scratch.file("quen/file", "kept too");
  const fs::path link = scratch.link("link", home);
  setHomes(quen, home);

  EXPECT_EQ(raisedByRemoving(home), kRefused);
  EXPECT_EQ(raisedByRemoving(home / ""), kRefused);
  EXPECT_EQ(raisedByRemoving(quen), kRefused);
  EXPECT_EQ(raisedByRemoving(link), kRefused);

  EXPECT_EQ(namesIn(scratch.path()), "home link quen");
  EXPECT_EQ(contents(home / "file"), "kept");
  EXPECT_EQ(contents(quen / "file"), "kept too");
}

// The guard intends to refuse exact matches only.
TEST_F_IN_FRESH_PROCESS(RemoveAll, TakesWhatLiesInAHomeAndWhatAHomeLiesIn) {
  scratch.folder("users/home/inside");
  scratch.file("users/home/file", "kept");
  setHomes("", scratch / "users/home");

  EXPECT_EQ(raisedByRemoving(scratch / "users/home/inside"), "");
  EXPECT_EQ(namesIn(scratch / "users/home"), "file");

  EXPECT_EQ(raisedByRemoving(scratch / "users"), "");
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(RemoveAll, ThatFailsKeepsWhatItCouldNotTakeAndNothingElse) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    scratch.folder("tree/inner/folder");
    scratch.file("tree/inner/file");
    fs::permissions(scratch / "tree", fs::perms(0555));

    EXPECT_EQ(raisedByRemoving(scratch / "tree"), kFailed);

    EXPECT_EQ(namesIn(scratch / "tree"), "inner");
    EXPECT_EQ(namesIn(scratch / "tree/inner"), "");
  });
}

TEST_F(RemoveAll, OfAFolderThatMayNotBeReadRaisesAndLeavesIt) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    scratch.folder("tree/closed");
    scratch.file("tree/closed/file", "kept");
    fs::permissions(scratch / "tree/closed", fs::perms(0311));

    EXPECT_EQ(raisedByRemoving(scratch / "tree"), kFailed);

    EXPECT_EQ(contents(scratch / "tree/closed/file"), "kept");
  });
}

TEST_F(RemoveAll, InAFolderThatMayNotBeSearchedRaises) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path closed = scratch.folder("closed");
  scratch.folder("closed/folder");
  fs::permissions(closed, fs::perms::none);

  inUnprivilegedChild([&] {
    EXPECT_EQ(raisedByRemoving(closed / "folder"), kFailed);
    EXPECT_EQ(raisedByRemoving(closed / "missing"), kFailed);
  });

  fs::permissions(closed, fs::perms::owner_all);
  EXPECT_EQ(namesIn(closed), "folder");
}

}  // namespace
