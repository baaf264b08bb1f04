#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
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

struct Lexical {
  std::string text;
  std::string result;
  bool traversal = false;
};

std::string longText() {
  std::string text = "x";
  for (int i = 0; i < 5000; ++i) text += "/y";
  return text;
}

using Cwd = BoundaryTest;

TEST_F(Cwd, IsTheNormalizedFolderAsAProperty) {
  void* here = __quen_propget_quen_io_Path_cwd();

  EXPECT_EQ(pathText(here), fs::current_path().lexically_normal());
  EXPECT_TRUE(isFolderPath(here));
  EXPECT_FALSE(hasParentTraversal(here));
}

TEST_F(Cwd, IsTheTextOfTheSystemAsANativeMember) {
  EXPECT_EQ(text(quen_io_Path__cwdPath()), fs::current_path());
}

TEST_F(Cwd, IsTheEmptyFolderOrTheEmptyStringWhenItIsGone) {
  inChild([this] {
    fs::current_path(scratch.folder("gone"));
    fs::remove(scratch / "gone");

    void* here = __quen_propget_quen_io_Path_cwd();

    EXPECT_EQ(pathText(here), "");
    EXPECT_TRUE(isFolderPath(here));
    EXPECT_FALSE(hasParentTraversal(here));
    EXPECT_EQ(text(quen_io_Path__cwdPath()), "");
    EXPECT_EQ(raised(), "");
  });
}

using Normalize = BoundaryTest;

TEST_F(Normalize, GivesTheLexicalNormalForm) {
  const std::vector<Lexical> cases{
      {"", ""},
      {"a", "a"},
      {".", "."},
      {"./", "."},
      {"/", "/"},
      {"//", "//"},
      {"a//b", "a/b"},
      {"a/./b", "a/b"},
      {"a/b/", "a/b/"},
      {"a/b/.", "a/b/"},
      {"./a", "a"},
      {"..", "..", true},
      {"../", "..", true},
      {"a/..", ".", true},
      {"a/./b/..", "a/", true},
      {"a/../b", "b", true},
      {"a/../../b", "../b", true},
      {"/../a", "/a", true},
      {"/..", "/", true},
      {"...", "..."},
      {"a/..b", "a/..b"},
      {"a\\..\\b", "a\\..\\b", true},  // one name here, three segments of a text
      {"\xFF/./\xFE", "\xFF/\xFE"},
      {longText(), longText()},
  };
  for (const Lexical& each : cases) {
    SCOPED_TRACE(each.text);

    EXPECT_EQ(stateOf(quen_io_Path_normalize(newPath(each.text))),
              (PathState{each.result, false, each.traversal}));
    EXPECT_EQ(text(quen_io_Path__normalizePath(each.text.c_str())), each.result);
  }
}

TEST_F(Normalize, KeepsTheKindOfPath) {
  ASSERT_TRUE(defineClass("app.Shelf", "quen.io.FolderPath", {}));
  void* shelf = newObject("app.Shelf");
  Quen_setField_ptr(shelf, "_path", newString("./h"));

  void* folder = quen_io_Path_normalize(newFolderPath("x/./y/"));
  EXPECT_EQ(pathText(folder), "x/y/");
  EXPECT_TRUE(isFolderPath(folder));
  EXPECT_TRUE(isFolderPath(quen_io_Path_normalize(shelf))) << "a subclass is a folder, too";
  EXPECT_FALSE(isFolderPath(quen_io_Path_normalize(newFilePath("x"))));
}

TEST_F(Normalize, CarriesTheTraversalOfItsReceiver) {
  void* once = quen_io_Path_normalize(newPath("a/../b"));
  void* twice = quen_io_Path_normalize(once);

  EXPECT_EQ(pathText(twice), "b");
  EXPECT_TRUE(hasParentTraversal(twice));
}

TEST_F(Normalize, GivesAnEmptyPathForNullAndForAnObjectWithoutPath) {
  for (void* receiver :
       {static_cast<void*>(nullptr), newString("no path"), newObject("quen.io.Path")}) {
    void* normal = quen_io_Path_normalize(receiver);

    EXPECT_EQ(pathText(normal), "");
    EXPECT_FALSE(isFolderPath(normal));
    EXPECT_FALSE(hasParentTraversal(normal));
  }
  EXPECT_EQ(text(quen_io_Path__normalizePath(nullptr)), "");
}

using ToAbsolute = BoundaryTest;

TEST_F(ToAbsolute, AppendsToTheCurrentDirectoryAndNormalizes) {
  const std::string here = fs::current_path().lexically_normal();
  const std::vector<Lexical> cases{
      {"/a/./b", "/a/b"},
      {"/a/../b/", "/b/", true},
      {"a//b", here + "/a/b"},
      {"./a/..", here + "/", true},
      {"no/such/entry", here + "/no/such/entry"},
  };
  for (const Lexical& each : cases) {
    SCOPED_TRACE(each.text);

    void* absolute = quen_io_Path_toAbsolute(newPath(each.text));

    EXPECT_EQ(pathText(absolute), each.result);
    EXPECT_EQ(hasParentTraversal(absolute), each.traversal);
    EXPECT_FALSE(isFolderPath(absolute));
    EXPECT_EQ(text(quen_io_Path__absolutePath(each.text.c_str())), each.result);
  }
  EXPECT_TRUE(isFolderPath(quen_io_Path_toAbsolute(newFolderPath("a"))));
}

TEST_F(ToAbsolute, DoesNotResolveLinks) {
  const fs::path link = scratch.link("link", scratch.folder("target"));

  EXPECT_EQ(pathText(quen_io_Path_toAbsolute(newPath(link.native()))), link);
}

// An empty path has no absolute form.
TEST_F(ToAbsolute, OfAnEmptyPathIsEmpty) {
  for (void* receiver : {static_cast<void*>(nullptr), newPath("")}) {
    void* absolute = quen_io_Path_toAbsolute(receiver);
    EXPECT_EQ(pathText(absolute), "");
    EXPECT_FALSE(isFolderPath(absolute));
  }
  EXPECT_EQ(text(quen_io_Path__absolutePath(nullptr)), "");
  EXPECT_EQ(text(quen_io_Path__absolutePath("")), "");
}

TEST_F(ToAbsolute, NormalizesWithoutACurrentDirectoryWhereTheNativeMemberHandsTheTextBack) {
  inChild([this] {
    fs::current_path(scratch.folder("gone"));
    fs::remove(scratch / "gone");

    EXPECT_EQ(pathText(quen_io_Path_toAbsolute(newPath("a/./b"))), "a/b");
    EXPECT_EQ(text(quen_io_Path__absolutePath("a/./b")), "a/./b");
    EXPECT_EQ(pathText(quen_io_Path_toAbsolute(newPath("/a/./b"))), "/a/b");
    EXPECT_EQ(text(quen_io_Path__absolutePath("/a/./b")), "/a/b");
    EXPECT_EQ(raised(), "");
  });
}

using Parent = BoundaryTest;

TEST_F(Parent, IsANormalizedFolder) {
  const std::vector<Lexical> cases{
      {"/", "/"},
      {"/a", "/"},
      {"a/", "a"},
      {"a/b", "a"},
      {"a//b", "a"},
      {"/a/b/", "/a/b"},
      {"a/b/../c", "a/", true},
      {"../a", "..", true},
      {"./a", "."},
      {longText() + "/z", longText()},
  };
  for (const Lexical& each : cases) {
    SCOPED_TRACE(each.text);

    EXPECT_EQ(stateOf(quen_io_Path_parent(newFilePath(each.text))),
              (PathState{each.result, true, each.traversal}));
    EXPECT_EQ(text(quen_io_Path__parentPath(each.text.c_str())), each.result);
  }
}

TEST_F(Parent, IsNullOrTheEmptyStringWhereThereIsNone) {
  for (const char* single : {"", "a", "..", "."}) {
    SCOPED_TRACE(single);
    EXPECT_EQ(quen_io_Path_parent(newPath(single)), nullptr);
    EXPECT_EQ(text(quen_io_Path__parentPath(single)), "");
  }
  EXPECT_EQ(quen_io_Path_parent(nullptr), nullptr);
  EXPECT_EQ(text(quen_io_Path__parentPath(nullptr)), "");
}

TEST_F(Parent, CarriesTheTraversalOfItsReceiver) {
  void* once = quen_io_Path_normalize(newPath("a/../b/c"));

  EXPECT_TRUE(hasParentTraversal(quen_io_Path_parent(once)));
}

using IsAbsolute = BoundaryTest;

TEST_F(IsAbsolute, MeansToHaveARootDirectory) {
  for (const auto isAbsolute : {quen_io_Path__isAbsolute, __quen_propget_quen_io_Path_isAbsolute}) {
    EXPECT_TRUE(isAbsolute(newPath("/a")));
    EXPECT_TRUE(isAbsolute(newPath("/")));
    EXPECT_FALSE(isAbsolute(newPath("a")));
    EXPECT_FALSE(isAbsolute(newPath("C:\\a"))) << "a relative name on this host";
    EXPECT_FALSE(isAbsolute(newPath("")));
    EXPECT_FALSE(isAbsolute(nullptr));
  }
}

using IsNormalized = BoundaryTest;

TEST_F(IsNormalized, ComparesElementByElement) {
  for (const auto isNormalized :
       {quen_io_Path__isNormalized, __quen_propget_quen_io_Path_isNormalized}) {
    for (const char* normal : {"a", "a/b", "a//b", "a/b/", "/", ".", "..", "../a", "..."}) {
      EXPECT_TRUE(isNormalized(newPath(normal))) << normal;
    }
    for (const char* other : {"a/./b", "./a", "a/..", "./", "../", "/..", "a/."}) {
      EXPECT_FALSE(isNormalized(newPath(other))) << other;
    }
    EXPECT_FALSE(isNormalized(newPath("")));
    EXPECT_FALSE(isNormalized(nullptr));
  }
}

}  // namespace
