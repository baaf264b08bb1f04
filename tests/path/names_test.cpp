#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

struct Row {
  const char* path;
  const char* expected;
};

// The name or the extension of a path: as a method, a getter and a native member.
class Part : public BoundaryTest {
 protected:
  Part(void* (*method)(void*), void* (*getter)(void*), void* (*native)(const char*))
      : method_(method), getter_(getter), native_(native) {}

  void expectPart(const Row& row) const {
    SCOPED_TRACE(row.path);
    void* path = newPath(row.path);

    EXPECT_EQ(text(native_(row.path)), row.expected);
    EXPECT_EQ(text(method_(path)), row.expected);
    EXPECT_EQ(text(getter_(path)), row.expected);
  }

  void expectEmptyWithoutAPath() const {
    EXPECT_EQ(text(native_(nullptr)), "");
    EXPECT_EQ(text(native_("")), "");
    for (void* receiver : {static_cast<void*>(nullptr), newPath(""), newObject("quen.io.Path"),
                           newString("a/b.c")}) {
      EXPECT_EQ(text(method_(receiver)), "");
      EXPECT_EQ(text(getter_(receiver)), "");
    }
  }

 private:
  void* (*method_)(void*);
  void* (*getter_)(void*);
  void* (*native_)(const char*);
};

class Name : public Part {
 protected:
  Name() : Part(quen_io_Path_name, __quen_propget_quen_io_Path_name, quen_io_Path__pathName) {}
};

TEST_F(Name, IsWhatFollowsTheLastSlash) {
  static constexpr Row kRows[] = {
      {"a", "a"},
      {"a/b", "b"},
      {"/a", "a"},
      {"//a", "a"},
      {"a//b", "b"},
      {".profile", ".profile"},
      {"a/.profile", ".profile"},
      {"archive.tar.gz", "archive.tar.gz"},
      {" ", " "},
      {"a/\xFF", "\xFF"},
      // "." and ".." are names too.
      {".", "."},
      {"..", ".."},
      {"a/.", "."},
      {"a/..", ".."},
      {"/a/..", ".."},
      {"/.", "."},
      {"...", "..."},
      // A trailing slash is followed by an empty name.
      {"/", ""},
      {"//", ""},
      {"a/", ""},
      {"a/b/", ""},
      {"a/b//", ""},
      {"../", ""},
      // A backslash is an ordinary byte of a name.
      {"a\\b", "a\\b"},
      {"a/b\\", "b\\"},
      {"\\", "\\"},
      {"C:\\a/b", "b"},
  };

  for (const Row& row : kRows) expectPart(row);
}

TEST_F(Name, OfNothingIsTheEmptyString) { expectEmptyWithoutAPath(); }

class Extension : public Part {
 protected:
  Extension()
      : Part(quen_io_Path_extension, __quen_propget_quen_io_Path_extension,
             quen_io_Path__pathExtension) {}
};

TEST_F(Extension, IsWhatFollowsTheLastDotOfTheName) {
  static constexpr Row kRows[] = {
      {"file.txt", "txt"},
      {"a/file.txt", "txt"},
      {"/file.txt", "txt"},
      {"archive.tar.gz", "gz"},
      {"a..b", "b"},
      {"a. b", " b"},
      {"a.\xFF", "\xFF"},
      {"a.b", "b"},
      // No extension, or an empty one.
      {"file", ""},
      {"a.", ""},
      {"a.b.", ""},
      {"a.b/c", ""},
      {"a.b/", ""},
      {"a/b.txt/", ""},
      {"/", ""},
      // A leading dot does not begin an extension.
      {".", ""},
      {"..", ""},
      {".a", ""},
      {".ab", ""},
      {".profile", ""},
      {"a.b/.profile", ""},
      {"a.b/..", ""},
      {"a.b/.", ""},
      {".profile.bak", "bak"},
      {".a.b", "b"},
      {"..a", "a"},
      {"...", ""},
      {"....", ""},
      {"...a", "a"},
      // A backslash is not a separator.
      {"a.b\\c", "b\\c"},
      {"a\\b.c", "c"},
      {"a.b\\", "b\\"},
  };

  for (const Row& row : kRows) expectPart(row);
}

TEST_F(Extension, OfNothingIsTheEmptyString) { expectEmptyWithoutAPath(); }

using Kind = BoundaryTest;

TEST_F(Kind, IsDirectoryForAFolder) {
  const fs::path folder = scratch.folder("folder");
  const fs::path link = scratch.link("link", folder);

  EXPECT_EQ(text(quen_io_Path__pathKindPath(folder.c_str())), "directory");
  EXPECT_EQ(text(quen_io_Path__pathKindPath((folder.native() + "/").c_str())), "directory");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(link.c_str())), "directory");
  EXPECT_EQ(text(quen_io_Path__pathKindPath("/")), "directory");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(".")), "directory");
}

TEST_F(Kind, IsFileForARegularFile) {
  const fs::path file = scratch.file("file.txt", "x");
  const fs::path link = scratch.link("link", file);

  EXPECT_EQ(text(quen_io_Path__pathKindPath(file.c_str())), "file");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(link.c_str())), "file");
}

TEST_F(Kind, IsUnknownForEverythingElse) {
  const fs::path file = scratch.file("file");
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

  EXPECT_EQ(text(quen_io_Path__pathKindPath((scratch / "missing").c_str())), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath((file / "below").c_str())), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(scratch.link("dangling", "missing").c_str())),
            "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(scratch.link("loop", "loop").c_str())), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(std::string(300, 'n').c_str())), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath(pipe.c_str())), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath("/dev/null")), "unknown");
}

TEST_F(Kind, IsUnknownWhereItMayNotBeLookedAt) {
  const fs::path inside = scratch.folder("locked/inside");
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(scratch / "locked", fs::perms::none);

  inUnprivilegedChild(
      [&inside] { EXPECT_EQ(text(quen_io_Path__pathKindPath(inside.c_str())), "unknown"); });
}

TEST_F(Kind, IsUnknownForNothing) {
  EXPECT_EQ(text(quen_io_Path__pathKindPath(nullptr)), "unknown");
  EXPECT_EQ(text(quen_io_Path__pathKindPath("")), "unknown");
}

using Roots = BoundaryTest;

TEST_F(Roots, AreTheOneOfThisHost) {
  void* roots = quen_io_Path__rootStringsNative();

  EXPECT_EQ(className(roots), "quen.collections.ArrayList");
  ASSERT_EQ(listElements(roots).size(), 1u);
  EXPECT_EQ(text(listElements(roots).front()), "/");
}

TEST_F(Roots, AreANewListEachTime) {
  void* first = quen_io_Path__rootStringsNative();
  quen_collections_ArrayList_add(first, newString("mine"));

  void* second = quen_io_Path__rootStringsNative();

  EXPECT_NE(second, first);
  EXPECT_EQ(listStrings(second), std::vector<std::string>{"/"});
}

}  // namespace
