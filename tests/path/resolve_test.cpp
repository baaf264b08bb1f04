#include <gtest/gtest.h>

#include <array>
#include <string>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/path_objects.h"

using namespace quen::small;
using namespace quen::tests;

namespace {

using Resolve = BoundaryTest;

constexpr std::array kOverloads = {quen_io_Path_resolve, quen_io_Path_resolve__dup2,
                                   quen_io_Path_resolve__dup3};

// A C string as the operand of an overload, which takes an object or a C string.
void* asOperand(const char* text) { return const_cast<char*>(text); }

// A path object with the sticky parent-traversal flag, whatever its text is.
void* stickyPath(const char* text) {
  return Quen_allocTypedPathObjectFromPath(text, true, false, true);
}

// All overloads and the native member agree.
TEST_F(Resolve, JoinsAndNormalizes) {
  struct Row {
    const char* base;
    const char* operand;
    const char* resolved;
    bool folder;
    bool parentTraversal;
  };
  static constexpr Row kRows[] = {
      {"a/b", "c", "a/b/c", false, false},
      {"a/b/", "c", "a/b/c", false, false},
      {"a//b", "c//d", "a/b/c/d", false, false},
      {"/", "a", "/a", false, false},
      {"//a", "b", "/a/b", false, false},
      {"//", "a", "//a", false, false},
      {"a", ".", "a/", false, false},
      {"a", "./b/.", "a/b/", false, false},
      {".", "a", "a", false, false},
      {"a", "C:/x", "a/C:/x", false, false},
      // An operand that ends in a separator makes a folder.
      {"a/b", "c/", "a/b/c/", true, false},
      {"a", "./", "a/", true, false},
      {"a", "c\\", "a/c\\", true, false},
      {"a", "\\", "a/\\", true, false},
      {"a/", "c", "a/c", false, false},
      {"a\\", "c", "a\\/c", false, false},
      // A ".." in either operand sets parent traversal, also between backslashes.
      {"a/b", "../c", "a/c", false, true},
      {"a", "..", ".", false, true},
      {"a", "../", ".", true, true},
      {"a", "../..", "..", false, true},
      {"/", "..", "/", false, true},
      {"a/../b", "c", "b/c", false, true},
      {"../a", "b", "../a/b", false, true},
      {"a", "b\\..\\c", "a/b\\..\\c", false, true},
      {"a\\..", "b", "a\\../b", false, true},
      {"a", "...", "a/...", false, false},
      {"a", "..b/b..", "a/..b/b..", false, false},
      // An absolute operand replaces the base and its parent traversal.
      {"a", "/x", "/x", false, false},
      {"a", "/", "/", true, false},
      {"/a", "/x//y/", "/x/y/", true, false},
      {"a", "//x", "/x", false, false},
      {"a/../b", "/x", "/x", false, false},
      {"a", "/x/../y", "/y", false, true},
      {"a", "/..", "/", false, true},
      {"a", "\\x", "a/\\x", false, false},
  };

  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.base) + " and " + row.operand);
    const PathState expected = {row.resolved, row.folder, row.parentTraversal};
    void* base = newPath(row.base);

    for (const auto resolve : kOverloads) {
      EXPECT_EQ(stateOf(resolve(base, newPath(row.operand))), expected);
      EXPECT_EQ(stateOf(resolve(base, asOperand(row.operand))), expected);
    }
    EXPECT_EQ(text(quen_io_Path__resolvePath(row.base, row.operand)), row.resolved);
  }
}

PathState resolved(void* receiver, void* operand) {
  return stateOf(quen_io_Path_resolve(receiver, operand));
}

TEST_F(Resolve, AsksNoClassWhetherTheResultIsAFolder) {
  void* folder = newFolderPath("d");
  void* file = newFilePath("d");

  EXPECT_EQ(resolved(folder, newFolderPath("f")), (PathState{"d/f", false, false}));
  EXPECT_EQ(resolved(folder, asOperand("f")), (PathState{"d/f", false, false}));
  EXPECT_EQ(resolved(file, newFilePath("f/")), (PathState{"d/f/", true, false}));
}

TEST_F(Resolve, CarriesTheStickyTraversalOfAnOperandObject) {
  EXPECT_EQ(resolved(newPath("a"), stickyPath("b")), (PathState{"a/b", false, true}));
  EXPECT_EQ(resolved(newPath("a"), stickyPath("/b")), (PathState{"/b", false, true}));
}

TEST_F(Resolve, CarriesTheStickyTraversalOfTheReceiverUnlessItIsReplaced) {
  void* sticky = quen_io_Path_normalize(newPath("x/../a"));

  EXPECT_EQ(resolved(sticky, newPath("b")), (PathState{"a/b", false, true}));
  EXPECT_EQ(resolved(sticky, asOperand("b/")), (PathState{"a/b/", true, true}));
  EXPECT_EQ(resolved(sticky, newPath("/b")), (PathState{"/b", false, false}));
  EXPECT_EQ(resolved(sticky, asOperand("/b")), (PathState{"/b", false, false}));
}

TEST_F(Resolve, GivesNullForANullReceiver) {
  for (const auto resolve : kOverloads) {
    EXPECT_EQ(resolve(nullptr, newPath("a")), nullptr);
    EXPECT_EQ(resolve(nullptr, asOperand("a")), nullptr);
    EXPECT_EQ(resolve(nullptr, nullptr), nullptr);
  }
}

TEST_F(Resolve, ReturnsItsReceiverForANullOperand) {
  void* path = newPath("./a/../b");
  void* withoutPath = newObject("quen.io.Path");

  for (const auto resolve : kOverloads) {
    EXPECT_EQ(resolve(path, nullptr), path);
    EXPECT_EQ(resolve(withoutPath, nullptr), withoutPath);
  }
  EXPECT_EQ(stateOf(path), (PathState{"./a/../b", false, false})) << "unchanged";
}

TEST_F(Resolve, CountsAReceiverWithoutAPathAsTheEmptyPath) {
  for (void* receiver : {newObject("quen.io.FolderPath"), newPath(""), newString("a")}) {
    EXPECT_EQ(resolved(receiver, newPath("b/./c")), (PathState{"b/c", false, false}));
    EXPECT_EQ(resolved(receiver, asOperand("../b/")), (PathState{"../b/", true, true}));
    EXPECT_EQ(resolved(receiver, asOperand("")), (PathState{"", false, false}));
  }
}

// An empty operand appends a separator, but does not make a folder.
TEST_F(Resolve, AppendsAnEmptyOperand) {
  for (const auto resolve : kOverloads) {
    for (void* empty : {asOperand(""), newPath(""), newFolderPath("")}) {
      EXPECT_EQ(stateOf(resolve(newPath("a"), empty)), (PathState{"a/", false, false}));
      EXPECT_EQ(stateOf(resolve(newFolderPath("a/"), empty)), (PathState{"a/", false, false}));
      EXPECT_EQ(stateOf(resolve(newPath("/"), empty)), (PathState{"/", false, false}));
      EXPECT_EQ(stateOf(resolve(newPath("a/../b"), empty)), (PathState{"b/", false, true}));
    }
  }
}

TEST_F(Resolve, AppendsAnOperandObjectWithoutAPathAsTheEmptyText) {
  void* withoutPath = newObject("quen.io.FolderPath");
  void* stickyWithoutPath = newObject("quen.io.Path");
  Quen_setField_ptr(stickyWithoutPath, "_hasParentTraversal", newString(""));  // not zero

  for (const auto resolve : kOverloads) {
    EXPECT_EQ(stateOf(resolve(newPath("a"), withoutPath)), (PathState{"a/", false, false}));
    EXPECT_EQ(stateOf(resolve(newPath("a"), newString("b"))), (PathState{"a/", false, false}));
    EXPECT_EQ(stateOf(resolve(newPath("a"), stickyWithoutPath)), (PathState{"a/", false, true}));
  }
}

// The method appends the empty operand.
TEST_F(Resolve, OfTextsLeavesTheBaseAsItIsForAnEmptyOperand) {
  EXPECT_EQ(text(quen_io_Path__resolvePath("x", "")), "x");
  EXPECT_EQ(text(quen_io_Path__resolvePath("x", nullptr)), "x");
  EXPECT_EQ(text(quen_io_Path__resolvePath("./a//b/../", "")), "./a//b/../") << "not normalized";
}

// The method normalizes the operand.
TEST_F(Resolve, OfTextsLeavesTheOperandAsItIsForAnEmptyBase) {
  EXPECT_EQ(text(quen_io_Path__resolvePath("", "x")), "x");
  for (const char* base : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, "./a//b/../")), "./a//b/../");
  }
  EXPECT_EQ(resolved(newPath(""), newPath("./a//b/")), (PathState{"a/b/", true, false}));
}

TEST_F(Resolve, OfNoTextsIsTheEmptyString) {
  for (const char* base : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, nullptr)), "");
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, "")), "");
  }
}

TEST_F(Resolve, IsLexical) {
  const std::string link = scratch.link("link", scratch.folder("a/b")).native();

  EXPECT_EQ(resolved(newPath(link), newPath("../c")).text, (scratch / "c").native())
      << "the link is not followed";
}

}  // namespace
