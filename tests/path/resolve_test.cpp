#include <gtest/gtest.h>

#include <array>
#include <string>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/path_objects.h"

using namespace quen::small;

namespace {

using Resolve = quen::tests::BoundaryTest;
using quen::tests::Seen;
using quen::tests::seen;

constexpr std::array kOverloads = {quen_io_Path_resolve, quen_io_Path_resolve__dup2,
                                   quen_io_Path_resolve__dup3};

// A path text where the overloads take an object or a text.
void* asOperand(const char* text) { return const_cast<char*>(text); }

// A path object in whose making a ".." took part, whatever its text is.
void* stickyPath(const char* text) {
  return Quen_allocTypedPathObjectFromPath(text, true, false, true);
}

// Each way of asking gives the same.
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
      {"a", ".", "a/", false, false},
      {"a", "./b/.", "a/b/", false, false},
      {".", "a", "a", false, false},
      {"a", "C:/x", "a/C:/x", false, false},
      // The last byte of the operand makes a folder.
      {"a/b", "c/", "a/b/c/", true, false},
      {"a", "./", "a/", true, false},
      {"a", "c\\", "a/c\\", true, false},
      {"a", "\\", "a/\\", true, false},
      {"a/", "c", "a/c", false, false},
      {"a\\", "c", "a\\/c", false, false},
      // A ".." of either counts, also between backslashes.
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
      // A root directory replaces the base and its traversal.
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
    const Seen expected = {row.resolved, row.folder, row.parentTraversal};
    void* base = newPath(row.base);

    for (const auto resolve : kOverloads) {
      EXPECT_EQ(seen(resolve(base, newPath(row.operand))), expected);
      EXPECT_EQ(seen(resolve(base, asOperand(row.operand))), expected);
    }
    EXPECT_EQ(text(quen_io_Path__resolvePath(row.base, row.operand)), row.resolved);
  }
}

TEST_F(Resolve, AsksNoClassWhetherTheResultIsAFolder) {
  void* folder = newFolderPath("d");
  void* file = newFilePath("d");

  EXPECT_EQ(seen(quen_io_Path_resolve(folder, newFolderPath("f"))), (Seen{"d/f", false, false}));
  EXPECT_EQ(seen(quen_io_Path_resolve(folder, asOperand("f"))), (Seen{"d/f", false, false}));
  EXPECT_EQ(seen(quen_io_Path_resolve(file, newFilePath("f/"))), (Seen{"d/f/", true, false}));
}

TEST_F(Resolve, CarriesTheStickyTraversalOfAnOperandObject) {
  EXPECT_EQ(seen(quen_io_Path_resolve(newPath("a"), stickyPath("b"))), (Seen{"a/b", false, true}));
  EXPECT_EQ(seen(quen_io_Path_resolve(newPath("a"), stickyPath("/b"))), (Seen{"/b", false, true}));
}

TEST_F(Resolve, CarriesTheStickyTraversalOfTheReceiverUnlessItIsReplaced) {
  void* sticky = quen_io_Path_normalize(newPath("x/../a"));

  EXPECT_EQ(seen(quen_io_Path_resolve(sticky, newPath("b"))), (Seen{"a/b", false, true}));
  EXPECT_EQ(seen(quen_io_Path_resolve(sticky, asOperand("b/"))), (Seen{"a/b/", true, true}));
  EXPECT_EQ(seen(quen_io_Path_resolve(sticky, newPath("/b"))), (Seen{"/b", false, false}));
  EXPECT_EQ(seen(quen_io_Path_resolve(sticky, asOperand("/b"))), (Seen{"/b", false, false}));
}

TEST_F(Resolve, GivesNullForANullReceiver) {
  for (const auto resolve : kOverloads) {
    EXPECT_EQ(resolve(nullptr, newPath("a")), nullptr);
    EXPECT_EQ(resolve(nullptr, asOperand("a")), nullptr);
    EXPECT_EQ(resolve(nullptr, nullptr), nullptr);
  }
}

TEST_F(Resolve, GivesTheVeryReceiverForANullOperand) {
  void* path = newPath("./a/../b");
  void* withoutPath = newObject("quen.io.Path");

  for (const auto resolve : kOverloads) {
    EXPECT_EQ(resolve(path, nullptr), path);
    EXPECT_EQ(resolve(withoutPath, nullptr), withoutPath);
  }
  EXPECT_EQ(seen(path), (Seen{"./a/../b", false, false})) << "unchanged";
}

TEST_F(Resolve, CountsAReceiverWithoutAPathAsTheEmptyPath) {
  for (void* receiver : {newObject("quen.io.FolderPath"), newPath(""), newString("a")}) {
    EXPECT_EQ(seen(quen_io_Path_resolve(receiver, newPath("b/./c"))), (Seen{"b/c", false, false}));
    EXPECT_EQ(seen(quen_io_Path_resolve(receiver, asOperand("../b/"))),
              (Seen{"../b/", true, true}));
    EXPECT_EQ(seen(quen_io_Path_resolve(receiver, asOperand(""))), (Seen{"", false, false}));
  }
}

// The empty operand ends the text in a separator and still makes no folder.
TEST_F(Resolve, AppendsAnEmptyOperand) {
  for (const auto resolve : kOverloads) {
    for (void* empty : {asOperand(""), newPath(""), newFolderPath("")}) {
      EXPECT_EQ(seen(resolve(newPath("a"), empty)), (Seen{"a/", false, false}));
      EXPECT_EQ(seen(resolve(newFolderPath("a/"), empty)), (Seen{"a/", false, false}));
      EXPECT_EQ(seen(resolve(newPath("/"), empty)), (Seen{"/", false, false}));
      EXPECT_EQ(seen(resolve(newPath("a/../b"), empty)), (Seen{"b/", false, true}));
    }
  }
}

TEST_F(Resolve, AppendsAnOperandObjectWithoutAPathAsTheEmptyText) {
  void* withoutPath = newObject("quen.io.FolderPath");
  void* stickyWithoutPath = newObject("quen.io.Path");
  Quen_setField_ptr(stickyWithoutPath, "_hasParentTraversal", newString(""));  // not zero

  for (const auto resolve : kOverloads) {
    EXPECT_EQ(seen(resolve(newPath("a"), withoutPath)), (Seen{"a/", false, false}));
    EXPECT_EQ(seen(resolve(newPath("a"), newString("b"))), (Seen{"a/", false, false}));
    EXPECT_EQ(seen(resolve(newPath("a"), stickyWithoutPath)), (Seen{"a/", false, true}));
  }
}

// Unlike the method, which appends it.
TEST_F(Resolve, OfTextsLeavesTheBaseAsItIsForAnEmptyOperand) {
  EXPECT_EQ(text(quen_io_Path__resolvePath("x", "")), "x");
  EXPECT_EQ(text(quen_io_Path__resolvePath("x", nullptr)), "x");
  EXPECT_EQ(text(quen_io_Path__resolvePath("./a//b/../", "")), "./a//b/../") << "not normalized";
}

// Unlike the method, which normalizes it.
TEST_F(Resolve, OfTextsLeavesTheOperandAsItIsForAnEmptyBase) {
  EXPECT_EQ(text(quen_io_Path__resolvePath("", "x")), "x");
  for (const char* base : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, "./a//b/../")), "./a//b/../");
  }
  EXPECT_EQ(seen(quen_io_Path_resolve(newPath(""), newPath("./a//b/"))),
            (Seen{"a/b/", true, false}));
}

TEST_F(Resolve, OfNoTextsIsTheEmptyString) {
  for (const char* base : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, nullptr)), "");
    EXPECT_EQ(text(quen_io_Path__resolvePath(base, "")), "");
  }
}

TEST_F(Resolve, LooksAtNoEntry) {
  const std::string link = scratch.link("link", scratch.folder("a/b")).native();

  EXPECT_EQ(seen(quen_io_Path_resolve(newPath(link), newPath("../c"))).text,
            (scratch / "c").native())
      << "the link is not followed";
}

}  // namespace
