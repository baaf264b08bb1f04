#include "conventions.h"

#include <gtest/gtest.h>

#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"

using namespace quen::io;
using namespace quen::small;
using namespace quen::tests;

namespace {

using Conventions = BoundaryTest;

TEST_F(Conventions, ATextIsEmptyWhenItIsNullOrBeginsWithItsEnd) {
  EXPECT_TRUE(isEmpty(nullptr));
  EXPECT_TRUE(isEmpty(""));
  EXPECT_FALSE(isEmpty(" "));
}

TEST_F(Conventions, ARequiredPathRaisesTheMessageWhenItIsEmpty) {
  EXPECT_TRUE(requirePath("a", "unused"));
  EXPECT_EQ(raised(), "");
  EXPECT_FALSE(requirePath("", "Path is empty"));
  EXPECT_EQ(raised(), "IOException: Path is empty");
  EXPECT_FALSE(requirePath(nullptr, "Invalid path"));
  EXPECT_EQ(raised(), "IOException: Invalid path");
}

TEST_F(Conventions, ATypeErrorHasTheRuntimesWordsOrOurs) {
  raiseTypeError("in so many words");
  EXPECT_EQ(raised(), "TypeError: in so many words");
  raiseTypeError("");
  EXPECT_EQ(raised(), "TypeError: Expected Byte[]");
}

TEST_F(Conventions, AFolderIsAFolderPathOrBelowIt) {
  ASSERT_TRUE(defineClass("app.Home", "quen.io.FolderPath", {}));

  EXPECT_TRUE(isFolder(newFolderPath("a")));
  EXPECT_TRUE(isFolder(newObject("app.Home")));
  EXPECT_FALSE(isFolder(newPath("a/")));
  EXPECT_FALSE(isFolder(nullptr));
}

TEST_F(Conventions, ASegmentOfTwoDotsIsAParentTraversal) {
  for (const char* text : {"..", "../a", "a/..", "a/../b", "/..", "../", "a//../b", "..\\a",
                           "a\\..", "a\\../b", "/a/b/..\\c", "\\..\\"}) {
    EXPECT_TRUE(containsParentTraversalSegment(text)) << text;
  }
  for (const char* text : {"", ".", "...", "a", "..a", "a..", "a/...", "a/..b/c", ". .", "/", "\\",
                           "//", "./.", "a/. ./b", ".a."}) {
    EXPECT_FALSE(containsParentTraversalSegment(text)) << text;
  }
  EXPECT_FALSE(containsParentTraversalSegment(nullptr));
}

TEST_F(Conventions, ParentTraversalIsCarriedByTheFieldOrTheText) {
  void* flagged = Quen_allocTypedPathObjectFromPath("a", true, false, true);

  EXPECT_TRUE(carriesParentTraversal(flagged, "a"));
  EXPECT_TRUE(carriesParentTraversal(flagged, nullptr));
  EXPECT_TRUE(carriesParentTraversal(newPath("a/.."), "a/.."));
  EXPECT_TRUE(carriesParentTraversal(nullptr, "a/.."));
  EXPECT_FALSE(carriesParentTraversal(newPath("a"), "a"));
  EXPECT_FALSE(carriesParentTraversal(nullptr, nullptr));
}

}  // namespace
