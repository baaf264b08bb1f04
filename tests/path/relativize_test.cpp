#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/path_objects.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

// Longer than NAME_MAX, so that a status query fails with ENAMETOOLONG.
const std::string kTooLongName(300, 'n');

class Relativize : public BoundaryTest {
 protected:
  // Compares the resulting texts of the method and of the native member.
  static void expectBoth(const fs::path& target, const fs::path& base, const std::string& text) {
    SCOPED_TRACE("from \"" + base.native() + "\" to \"" + target.native() + "\"");
    EXPECT_EQ(method(target, base), text);
    EXPECT_EQ(native(target, base), text);
  }

  static std::string method(const fs::path& target, const fs::path& base) {
    void* relative = quen_io_Path_relativize(newPath(target.native()), newPath(base.native()));
    return pathText(relative).value_or("no path");
  }

  static std::string native(const fs::path& target, const fs::path& base) {
    return text(quen_io_Path__relativizePath(target.c_str(), base.c_str()));
  }

  // Expects that std::filesystem::relative fails, so that the test reaches a fallback.
  static void expectError(const fs::path& target, const fs::path& base) {
    std::error_code error;
    const fs::path relative = fs::relative(target, base, error);
    EXPECT_TRUE(error) << relative << "from " << base << " to " << target;
  }

  // Runs the body in a child with the scratch folder as its working directory.
  void inScratchFolder(const std::function<void()>& body) const {
    inChild([&] {
      fs::current_path(scratch.path());
      body();
    });
  }
};

// Where std::filesystem::relative succeeds.

TEST_F(Relativize, LeadsFromTheBaseToTheTarget) {
  struct Row {
    const char* target;
    const char* base;
    const char* relative;
  };
  static constexpr Row kRows[] = {
      {"a", "a", "."},
      {"a/b", "a", "b"},
      {"a/b/c", "a", "b/c"},
      {"a", "a/b", ".."},
      {"b", "a", "../b"},
      {"a/x/y", "a/b/c", "../../x/y"},
      {"ab", "a", "../ab"},
      {"/", "/", "."},
      {"/no-such/a", "/", "no-such/a"},
      {"/no-such/a", "/no-such/b", "../a"},
      {"/", "/no-such/b", "../.."},
      {"../no-such/a", "../no-such/b", "../a"},
      // Repeated separators and "." make no difference.
      {"a/", "a", "."},
      {"a", "a/", "."},
      {"a//b", "a", "b"},
      {"a/./b", "a", "b"},
      {"a", "b/.", "../a"},
      {"a/../b", "b", "."},
      {"a/b", "a/c/..", "b"},
      {"a/b/", "a", "b/"},
      // A backslash is an ordinary byte of a name.
      {"a\\b", "a", "../a\\b"},
  };

  inScratchFolder([] {
    for (const Row& row : kRows) expectBoth(row.target, row.base, row.relative);
  });
}

TEST_F(Relativize, DoesNotRejectEmptyTexts) {
  inScratchFolder([] {
    expectBoth("", "", ".");
    expectBoth("a", "", "a");
    expectBoth("", "a", "..");
    expectBoth("", "a/b", "../..");
  });
}

TEST_F(Relativize, ReturnsAnEmptyResultAsItIs) {
  const fs::path folder = scratch.folder("folder");

  inScratchFolder([&] {
    expectBoth("missing", "/", "");
    expectBoth("missing", folder, "");
    expectBoth("", folder, "");
    expectBoth("folder", "", "");
    expectBoth("/missing", "missing", "");
    expectBoth("missing", "x/../..", "");
    expectBoth("./missing", "missing", "");  // "." exists, and is absolute from then on
  });
}

TEST_F(Relativize, MakesAnObjectOfAnEmptyResultToo) {
  inScratchFolder([] {
    void* folder = quen_io_Path_relativize(newFolderPath("missing/../x"), newPath("/"));

    EXPECT_EQ(stateOf(folder), (PathState{"", true, true}));
  });
}

TEST_F(Relativize, FindsARelativePathAndAnAbsoluteOneInOneTree) {
  scratch.folder("a/b");

  inScratchFolder([this] {
    expectBoth("a/b", scratch.path(), "a/b");
    expectBoth(scratch / "a", "a/b", "..");
    expectBoth("a/b/missing", scratch / "a", "b/missing");
  });
}

TEST_F(Relativize, ResolvesLinksAsFarAsThePathExists) {
  const fs::path folder = scratch.folder("real/folder");
  scratch.link("link", folder);
  scratch.link("dangling", scratch / "missing");

  expectBoth(scratch / "link", scratch.path(), "real/folder");
  expectBoth(scratch / "link/missing", folder, "missing");
  expectBoth(scratch / "link/../x", scratch / "real", "x");
  expectBoth(scratch / "real/x", scratch / "link", "../x");
  expectBoth(scratch / "dangling/x", scratch.path(), "dangling/x");
}

TEST_F(Relativize, GoesOnBelowARegularFile) {
  const fs::path file = scratch.file("file");

  expectBoth(file / "x", file, "x");
  expectBoth(file / "x", scratch.path(), "file/x");
}

// Where the library reports an error, the texts decide; the tests of the fallbacks are below.
TEST_F(Relativize, AgreesWithTheStandardLibraryOnEveryPairOfPaths) {
  scratch.folder("a/b");
  scratch.file("file");
  scratch.link("link", "a/b");
  scratch.link("loop", "loop");
  const std::vector<fs::path> paths = {"",
                                       ".",
                                       "..",
                                       "/",
                                       "//",
                                       "a",
                                       "a/",
                                       "a/b",
                                       "a/b/",
                                       "./a/./b",
                                       "a/../b",
                                       "a/b/../../..",
                                       "file",
                                       "file/x",
                                       "link",
                                       "link/..",
                                       "link/../x",
                                       "missing",
                                       "missing/x",
                                       "missing/../",
                                       "missing/../a",
                                       "loop",
                                       "loop/../a",
                                       "a/../loop/x",
                                       "a\\b",
                                       "../a",
                                       kTooLongName,
                                       "/missing/x",
                                       "/../missing",
                                       scratch.path(),
                                       scratch / "a",
                                       scratch / "loop/x",
                                       scratch / "missing/.."};

  inScratchFolder([&paths] {
    for (const fs::path& target : paths) {
      for (const fs::path& base : paths) {
        std::error_code error;
        const fs::path relative = fs::relative(target, base, error);

        expectBoth(target, base, error ? native(target, base) : relative.native());
      }
    }
  });
}

TEST_F(Relativize, ChangesNothingOnDisk) {
  scratch.folder("a");
  scratch.link("loop", "loop");

  expectBoth(scratch / "b", scratch / "a", "../b");
  expectBoth(scratch / "loop", scratch / "a", "../loop");

  EXPECT_EQ(namesIn(scratch.path()), "a loop");
}

// Where std::filesystem::relative fails: the fallbacks.

TEST_F(Relativize, GoesByTheTextsAcrossALinkThatLoops) {
  const fs::path loop = scratch.link("loop", "loop");
  expectError(loop, scratch / "a");
  expectError(scratch / "a", loop / "x");

  expectBoth(loop, scratch / "a", "../loop");
  expectBoth(loop / "x", loop, "x");
  expectBoth(scratch / "a", loop / "x", "../../a");
}

TEST_F(Relativize, GoesByTheTextsAcrossANameThatIsTooLong) {
  expectError(kTooLongName, "a");
  expectError("a", kTooLongName);

  expectBoth(kTooLongName, "a", "../" + kTooLongName);
  expectBoth("a", kTooLongName, "../a");
  expectBoth(kTooLongName, kTooLongName, ".");
}

TEST_F(Relativize, GoesByTheTextsAcrossAFolderThatMayNotBeSearched) {
  scratch.folder("locked/inside");
  scratch.link("link", "locked");
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(scratch / "locked", fs::perms::none);

  inUnprivilegedChild([this] {
    expectError(scratch / "link/inside", scratch.path());

    expectBoth(scratch / "link/inside", scratch / "a", "../link/inside");
    expectBoth(scratch / "a", scratch / "link/inside", "../../a");
    expectBoth(scratch / "link", scratch / "a", "../locked");
  });
}

TEST_F(Relativize, GoesByTheTextsInAWorkingDirectoryThatIsGone) {
  const fs::path gone = scratch.folder("gone");

  inChild([&gone] {
    fs::current_path(gone);
    fs::remove(gone);
    expectError(".", "a");
    expectError("a", "./b");

    expectBoth(".", "a", "../.");
    expectBoth("a", "./b", "../a");
    expectBoth("a", "b", "../a");
  });
}

TEST_F(Relativize, DoesNotNormalizeTheLexicalResult) {
  const fs::path loop = scratch.link("loop", "loop");

  expectBoth(loop / "./x/../y", loop, "./x/../y");
  expectBoth(loop / "x/", loop, "x/");
}

TEST_F(Relativize, ReturnsTheNormalTargetWithoutALexicalResult) {
  const fs::path loop = scratch.link("loop", "loop");

  // Only one of the operands is absolute.
  expectBoth("./" + kTooLongName + "/../y//z", "/a", "y/z");
  expectBoth(loop / "x/../y/", "a", loop / "y/");
  // The base leads above the folder that the target starts from.
  expectBoth("./x/./y", kTooLongName + "/../..", "x/y");
}

TEST_F(Relativize, KeepsKindAndParentTraversalInAFallback) {
  const fs::path loop = scratch.link("loop", "loop");
  void* loopFolder = newFolderPath(loop.native());

  EXPECT_EQ(stateOf(quen_io_Path_relativize(loopFolder, newPath((scratch / "a").native()))),
            (PathState{"../loop", true, false}));
  EXPECT_EQ(stateOf(quen_io_Path_relativize(loopFolder, newPath("a/../b"))),
            (PathState{loop, true, true}));
}

// The kind and the parent traversal of the result.

TEST_F(Relativize, MakesAFolderOfAFolder) {
  defineClass("relativize.Project", "quen.io.FolderPath", {});
  void* project = newObject("relativize.Project");
  Quen_setField_ptr(project, "_path", newString("/a/b"));

  EXPECT_TRUE(isFolderPath(quen_io_Path_relativize(newFolderPath("/a/b"), newFilePath("/a"))));
  EXPECT_TRUE(isFolderPath(quen_io_Path_relativize(project, newPath("/a"))));
  EXPECT_FALSE(isFolderPath(quen_io_Path_relativize(newPath("/a/b/"), newFolderPath("/a/"))));
  EXPECT_FALSE(isFolderPath(quen_io_Path_relativize(newFilePath("/a/b"), newFolderPath("/a"))));
}

TEST_F(Relativize, CarriesTheParentTraversalOfEitherOperand) {
  const auto sticky = [](const char* text) {
    return Quen_allocTypedPathObjectFromPath(text, true, false, true);
  };
  const auto traversal = [](void* target, void* base) {
    return hasParentTraversal(quen_io_Path_relativize(target, base));
  };

  EXPECT_TRUE(traversal(sticky("/a/b"), newPath("/a")));
  EXPECT_TRUE(traversal(newPath("/x/../a/b"), newPath("/a")));
  EXPECT_TRUE(traversal(newPath("/a/x\\..\\b"), newPath("/a"))) << "a backslash separates, too";
  EXPECT_TRUE(traversal(newPath("/a/b"), sticky("/a")));
  EXPECT_TRUE(traversal(newPath("/a/b"), newPath("/x/../a")));
  EXPECT_FALSE(traversal(newPath("/a/..b"), newPath("/a/...")));
}

TEST_F(Relativize, DoesNotTakeTheParentTraversalOfItsResult) {
  EXPECT_EQ(stateOf(quen_io_Path_relativize(newPath("/no-such/b"), newPath("/no-such/a"))),
            (PathState{"../b", false, false}));
}

// Operands without a path.

TEST_F(Relativize, ReturnsItsReceiverForANullBase) {
  void* path = newPath("./a/../b");

  EXPECT_EQ(quen_io_Path_relativize(path, nullptr), path);
  EXPECT_EQ(quen_io_Path_relativize(nullptr, nullptr), nullptr);
  EXPECT_EQ(stateOf(path), (PathState{"./a/../b", false, false})) << "unchanged";
}

TEST_F(Relativize, ReturnsItsReceiverWhenAnOperandHasNoPath) {
  void* path = newPath("a");
  void* withoutPath = newObject("quen.io.FolderPath");
  void* string = newString("a");

  EXPECT_EQ(quen_io_Path_relativize(path, withoutPath), path);
  EXPECT_EQ(quen_io_Path_relativize(path, string), path);
  EXPECT_EQ(quen_io_Path_relativize(withoutPath, path), withoutPath);
  EXPECT_EQ(quen_io_Path_relativize(string, path), string);
  EXPECT_EQ(quen_io_Path_relativize(nullptr, path), nullptr);
}

// The method returns its receiver; the native member, which has only texts, returns the target.
TEST_F(Relativize, OfTextsGivesTheTargetAsItIsForANullBase) {
  EXPECT_EQ(text(quen_io_Path__relativizePath("./a//b/../", nullptr)), "./a//b/../");
  EXPECT_EQ(text(quen_io_Path__relativizePath("", nullptr)), "");
}

TEST_F(Relativize, OfTextsGivesTheEmptyStringForANullTarget) {
  EXPECT_EQ(text(quen_io_Path__relativizePath(nullptr, "a")), "");
  EXPECT_EQ(text(quen_io_Path__relativizePath(nullptr, nullptr)), "");
}

}  // namespace
