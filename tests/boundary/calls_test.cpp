// What each entry point asks of the runtime: which operations, with which
// arguments, in which order, and nothing besides. Results are looked at
// elsewhere.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

using Lines = std::vector<std::string>;

std::string q(const fs::path& path) { return '"' + path.native() + '"'; }

class Calls : public BoundaryTest {
 protected:
  // The object goes by this name in the notes.
  void* named(const std::string& name, void* object) {
    recorder.names[object] = name;
    return object;
  }

  void* self(std::string_view text) { return named("self", newPath(text)); }
  void* folder(std::string_view text) { return named("self", newFolderPath(text)); }

  quen::recording::Recorder recorder;
};

const Lines kNullReceiver{
    "Quen_filePathFromObject(null) -> null",
};

// A method and its forwarders are held to the same notes.
using Entry = std::function<void(void*)>;

// Path: normal form, absolute form, parent.

TEST_F(Calls, OfTheCurrentDirectory) {
  const std::string here = q(fs::current_path());

  __quen_propget_quen_io_Path_cwd();
  quen_io_Path__cwdPath();

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_allocTypedPathObjectFromPath(" + here + ", false, false, false)",
                   "Quen_allocPathString(" + here + ", false)"}));
}

TEST_F(Calls, OfACurrentDirectoryThatIsGone) {
  inChild([this] {
    fs::current_path(scratch.folder("gone"));
    fs::remove(scratch / "gone");

    __quen_propget_quen_io_Path_cwd();
    quen_io_Path__cwdPath();

    EXPECT_EQ(recorder.calls(),
              (Lines{"Quen_allocTypedPathObjectFromPath(\"\", false, false, false)",
                     "Quen_allocString(\"\")"}));
  });
}

TEST_F(Calls, OfNormalizeAskForTextClassTraversalRootAndPath) {
  quen_io_Path_normalize(self("a/../b"));

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"a/../b\"",
                   "Quen_isInstanceOf(self, \"FolderPath\") -> 0",
                   "Quen_isInstanceOf(self, \"quen.io.FolderPath\") -> 0",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(\"a/../b\") -> false",
                   "Quen_runtimeFsPath(\"a/../b\")",
                   "Quen_allocTypedPathObjectFromPath(\"b\", true, false, true)"}));
}

TEST_F(Calls, OfNormalizeAskForTheSecondClassNameOnlyAfterANo) {
  quen_io_Path_normalize(folder("x/./y/"));

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"x/./y/\"",
                   "Quen_isInstanceOf(self, \"FolderPath\") -> 1",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(\"x/./y/\") -> false",
                   "Quen_runtimeFsPath(\"x/./y/\")",
                   "Quen_allocTypedPathObjectFromPath(\"x/y/\", false, false, false)"}));
}

TEST_F(Calls, OfNormalizeKnowAFolderByItsSecondClassNameToo) {
  recorder.unknownClasses = {"FolderPath"};

  void* result = quen_io_Path_normalize(folder("x/./y/"));

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"x/./y/\"",
                   "Quen_isInstanceOf(self, \"FolderPath\") -> 0",
                   "Quen_isInstanceOf(self, \"quen.io.FolderPath\") -> 1",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(\"x/./y/\") -> false",
                   "Quen_runtimeFsPath(\"x/./y/\")",
                   "Quen_allocTypedPathObjectFromPath(\"x/y/\", false, false, false)"}));
  EXPECT_TRUE(isFolderPath(result));
}

TEST_F(Calls, OfNormalizeAskOfANullReceiverAllButItsField) {
  quen_io_Path_normalize(nullptr);

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(null) -> null",
                   "Quen_isInstanceOf(null, \"FolderPath\") -> 0",
                   "Quen_isInstanceOf(null, \"quen.io.FolderPath\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(null) -> false", "Quen_runtimeFsPath(null)",
                   "Quen_allocTypedPathObjectFromPath(\"\", true, false, false)"}));
}

TEST_F(Calls, OfToAbsolutePassTheRootOfTheReceiversText) {
  recorder.windowsRoots = {"/a"};

  quen_io_Path_toAbsolute(self("/a"));

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"/a\"",
                   "Quen_isInstanceOf(self, \"FolderPath\") -> 0",
                   "Quen_isInstanceOf(self, \"quen.io.FolderPath\") -> 0",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(\"/a\") -> true", "Quen_runtimeFsPath(\"/a\")",
                   "Quen_allocTypedPathObjectFromPath(\"/a\", true, true, false)"}));
}

TEST_F(Calls, OfToAbsoluteAskOfANullReceiverAllButItsField) {
  quen_io_Path_toAbsolute(nullptr);

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(null) -> null",
                   "Quen_isInstanceOf(null, \"FolderPath\") -> 0",
                   "Quen_isInstanceOf(null, \"quen.io.FolderPath\") -> 0",
                   "Quen_pathHasExplicitWindowsRoot(null) -> false", "Quen_runtimeFsPath(null)",
                   "Quen_allocTypedPathObjectFromPath(\"\", true, false, false)"}));
}

TEST_F(Calls, OfParentMakeAFolderWithoutAskingForTheClass) {
  recorder.windowsRoots = {"a/b"};

  quen_io_Path_parent(self("a/b"));

  EXPECT_EQ(
      recorder.calls(),
      (Lines{"Quen_filePathFromObject(self) -> \"a/b\"",
             "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
             "Quen_pathHasExplicitWindowsRoot(\"a/b\") -> true", "Quen_runtimeFsPath(\"a/b\")",
             "Quen_allocTypedPathObjectFromPath(\"a\", false, true, false)"}));
}

TEST_F(Calls, OfParentMakeNothingWithoutAParent) {
  quen_io_Path_parent(self("a"));

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_filePathFromObject(self) -> \"a\"",
                                     "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                                     "Quen_pathHasExplicitWindowsRoot(\"a\") -> false",
                                     "Quen_runtimeFsPath(\"a\")"}));
}

TEST_F(Calls, OfTheNativeLexicalMembersPassTheRootOfTheirText) {
  recorder.windowsRoots = {"/a/./b"};

  quen_io_Path__normalizePath("/a/./b");
  quen_io_Path__absolutePath("/a/./b");
  quen_io_Path__parentPath("/a/./b");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_pathHasExplicitWindowsRoot(\"/a/./b\") -> true",
                   "Quen_runtimeFsPath(\"/a/./b\")", "Quen_allocPathString(\"/a/b\", true)",
                   "Quen_pathHasExplicitWindowsRoot(\"/a/./b\") -> true",
                   "Quen_runtimeFsPath(\"/a/./b\")", "Quen_allocPathString(\"/a/b\", true)",
                   "Quen_pathHasExplicitWindowsRoot(\"/a/./b\") -> true",
                   "Quen_runtimeFsPath(\"/a/./b\")", "Quen_allocPathString(\"/a/\", true)"}));
}

TEST_F(Calls, OfTheNativeLexicalMembersOnNullMakeTheEmptyStringOnly) {
  quen_io_Path__normalizePath(nullptr);
  quen_io_Path__absolutePath(nullptr);
  quen_io_Path__parentPath(nullptr);
  quen_io_Path__parentPath("");

  EXPECT_EQ(recorder.calls(), Lines(4, "Quen_allocString(\"\")"));
}

TEST_F(Calls, OfNormalizePathAreMadeForAnEmptyTextToo) {
  quen_io_Path__normalizePath("");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_pathHasExplicitWindowsRoot(\"\") -> false", "Quen_runtimeFsPath(\"\")",
                   "Quen_allocPathString(\"\", false)"}));
}

TEST_F(Calls, OfAbsolutePathHandTheTextBackWhenThereIsNoAbsoluteForm) {
  quen_io_Path__absolutePath("");

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_pathHasExplicitWindowsRoot(\"\") -> false",
                                     "Quen_runtimeFsPath(\"\")", "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfParentPathWithoutAParentMakeAPlainString) {
  quen_io_Path__parentPath("a");

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_pathHasExplicitWindowsRoot(\"a\") -> false",
                                     "Quen_runtimeFsPath(\"a\")", "Quen_allocString(\"\")"}));
}

// Predicates, queries and actions on a receiver: text once, path once, and what
// they are about.

struct OnReceiver {
  const char* description;
  Entry entry;
  Lines afterText;
};

void PrintTo(const OnReceiver& each, std::ostream* out) { *out << each.description; }

class CallsOnReceiver : public Calls, public testing::WithParamInterface<OnReceiver> {};

TEST_P(CallsOnReceiver, TakeTheTextAndConvertItOnce) {
  GetParam().entry(self("/dev/null"));

  Lines expected{"Quen_filePathFromObject(self) -> \"/dev/null\"",
                 "Quen_runtimeFsPath(\"/dev/null\")"};
  expected.insert(expected.end(), GetParam().afterText.begin(), GetParam().afterText.end());
  EXPECT_EQ(recorder.calls(), expected);
}

TEST_P(CallsOnReceiver, TakeTheTextOfAnEmptyPathAndNothingElse) {
  GetParam().entry(self(""));

  EXPECT_EQ(recorder.calls(), Lines{"Quen_filePathFromObject(self) -> \"\""});
}

INSTANTIATE_TEST_SUITE_P(
    Queries, CallsOnReceiver,
    testing::Values(
        OnReceiver{"isAbsolute", quen_io_Path__isAbsolute, {}},
        OnReceiver{"get isAbsolute", __quen_propget_quen_io_Path_isAbsolute, {}},
        OnReceiver{"isNormalized", quen_io_Path__isNormalized, {}},
        OnReceiver{"get isNormalized", __quen_propget_quen_io_Path_isNormalized, {}},
        OnReceiver{"exists", quen_io_Path__exists, {"Quen_pathExists(\"/dev/null\") -> true"}},
        OnReceiver{"get exists",
                   __quen_propget_quen_io_Path_exists,
                   {"Quen_pathExists(\"/dev/null\") -> true"}},
        OnReceiver{
            "isRegular", quen_io_Path__isRegular, {"Quen_pathEntryKind(\"/dev/null\") -> 3"}},
        OnReceiver{"get isRegular",
                   __quen_propget_quen_io_Path_isRegular,
                   {"Quen_pathEntryKind(\"/dev/null\") -> 3"}},
        OnReceiver{
            "isDirectory", quen_io_Path__isDirectory, {"Quen_pathEntryKind(\"/dev/null\") -> 3"}},
        OnReceiver{"get isDirectory",
                   __quen_propget_quen_io_Path_isDirectory,
                   {"Quen_pathEntryKind(\"/dev/null\") -> 3"}},
        OnReceiver{"isSymlink", quen_io_Path__isSymlink, {}},
        OnReceiver{"get isSymlink", __quen_propget_quen_io_Path_isSymlink, {}},
        OnReceiver{"size", quen_io_Path__size, {}},
        OnReceiver{"get size", __quen_propget_quen_io_Path_size, {}},
        OnReceiver{"lastModified", quen_io_Path__lastModified, {}},
        OnReceiver{"get lastModified", __quen_propget_quen_io_Path_lastModified, {}}));

TEST_F(Calls, OfExistsOnANullReceiverRaiseAndNothingElse) {
  quen_io_Path__exists(nullptr);
  EXPECT_EQ(raised(), "NullException: Cannot read Path.exists on null");
  __quen_propget_quen_io_Path_exists(nullptr);
  EXPECT_EQ(raised(), "NullException: Cannot read Path.exists on null");

  EXPECT_EQ(recorder.calls(), Lines(2,
                                    "Quen_raise(\"NullException\", \"Cannot "
                                    "read Path.exists on null\")"));
}

TEST_F(Calls, OfTheOtherQueriesOnANullReceiverAskForItsText) {
  const std::vector<Entry> entries{quen_io_Path__isRegular,    quen_io_Path__isDirectory,
                                   quen_io_Path__isSymlink,    quen_io_Path__size,
                                   quen_io_Path__lastModified, quen_io_Path__isAbsolute,
                                   quen_io_Path__isNormalized, quen_io_Path_parent};
  for (const Entry& entry : entries) entry(nullptr);

  EXPECT_EQ(recorder.calls(), Lines(entries.size(), kNullReceiver.front()));
}

TEST_F(Calls, OfTheQueriesOnATextAskTheRuntimeOrNobody) {
  quen_io_FileInputStream__existsPath("/dev/null");
  quen_io_FileInputStream__isRegularPath("/dev/null");
  quen_io_FileInputStream__sizePath("/dev/null");
  for (const char* empty : {"", static_cast<const char*>(nullptr)}) {
    quen_io_FileInputStream__existsPath(empty);
    quen_io_FileInputStream__isRegularPath(empty);
    quen_io_FileInputStream__sizePath(empty);
  }

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(\"/dev/null\")", "Quen_pathExists(\"/dev/null\") -> true",
                   "Quen_runtimeFsPath(\"/dev/null\")", "Quen_pathEntryKind(\"/dev/null\") -> 3",
                   "Quen_runtimeFsPath(\"/dev/null\")"}));
}

// Only the two kinds that have a meaning here make a query true, whatever
// others the runtime has.
TEST_F(Calls, AnsweredWithAnyKindAreComparedWithTwoOfThem) {
  for (int kind = -1; kind <= 5; ++kind) {
    SCOPED_TRACE(kind);
    recorder.kinds["x"] = QuenPathEntryKind{kind};
    EXPECT_EQ(quen_io_Path__isRegular(newPath("x")), kind == 1);
    EXPECT_EQ(quen_io_FileInputStream__isRegularPath("x"), kind == 1);
    EXPECT_EQ(quen_io_Path__isDirectory(newPath("x")), kind == 2);
    EXPECT_EQ(text(quen_io_Path__pathKindPath("x")), kind == 1   ? "file"
                                                     : kind == 2 ? "directory"
                                                                 : "unknown");
  }
}

// Path: relativize.

TEST_F(Calls, OfRelativizeTakeBothTextsFirstAndAskTheBaseForItsFieldLast) {
  void* base = named("base", newPath("/nowhere"));

  quen_io_Path_relativize(self("/nowhere/a"), base);

  EXPECT_EQ(
      recorder.calls(),
      (Lines{"Quen_filePathFromObject(self) -> \"/nowhere/a\"",
             "Quen_filePathFromObject(base) -> \"/nowhere\"", "Quen_runtimeFsPath(\"/nowhere/a\")",
             "Quen_runtimeFsPath(\"/nowhere\")", "Quen_isInstanceOf(self, \"FolderPath\") -> 0",
             "Quen_isInstanceOf(self, \"quen.io.FolderPath\") -> 0",
             "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
             "Quen_getField_i64(base, \"_hasParentTraversal\") -> 0",
             "Quen_allocTypedPathObjectFromPath(\"a\", true, false, false)"}));
}

TEST_F(Calls, OfRelativizeDoNotAskTheBaseOnceTraversalIsKnown) {
  void* base = named("base", newPath("/nowhere/.."));
  recorder.windowsRoots = {"/nowhere/../a", "/nowhere/.."};

  quen_io_Path_relativize(folder("/nowhere/../a"), base);

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"/nowhere/../a\"",
                   "Quen_filePathFromObject(base) -> \"/nowhere/..\"",
                   "Quen_runtimeFsPath(\"/nowhere/../a\")", "Quen_runtimeFsPath(\"/nowhere/..\")",
                   "Quen_isInstanceOf(self, \"FolderPath\") -> 1",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_allocTypedPathObjectFromPath(\"a\", false, false, true)"}));
}

TEST_F(Calls, OfRelativizeStopAtWhatIsNull) {
  void* none = named("none", newObject("quen.io.Path"));

  quen_io_Path_relativize(self("a"), nullptr);
  EXPECT_EQ(recorder.calls(), Lines{});
  quen_io_Path_relativize(self("a"), none);

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_filePathFromObject(self) -> \"a\"",
                                     "Quen_filePathFromObject(none) -> null"}));
}

TEST_F(Calls, OfRelativizePathPassNoWindowsRoot) {
  recorder.windowsRoots = {"/nowhere/a", "/nowhere"};

  quen_io_Path__relativizePath("/nowhere/a", "/nowhere");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(\"/nowhere/a\")", "Quen_runtimeFsPath(\"/nowhere\")",
                   "Quen_allocPathString(\"a\", false)"}));
}

TEST_F(Calls, OfRelativizePathHandTheTargetBackForANullBase) {
  quen_io_Path__relativizePath("a/../b", nullptr);
  quen_io_Path__relativizePath(nullptr, "a");

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_allocString(\"a/../b\")", "Quen_allocString(\"\")"}));
}

// A link onto itself cannot be brought to canonical form, which is an error.
TEST_F(Calls, OfRelativizePathSpellALexicalAnswerAndHandOutAPlainNormalForm) {
  const fs::path loop = scratch.link("loop", scratch / "loop");

  quen_io_Path__relativizePath((loop / "a").c_str(), loop.c_str());
  quen_io_Path__relativizePath((loop / "x" / "..").c_str(), "relative");

  EXPECT_EQ(
      recorder.calls(),
      (Lines{"Quen_runtimeFsPath(" + q(loop / "a") + ")", "Quen_runtimeFsPath(" + q(loop) + ")",
             "Quen_allocPathString(\"a\", false)",
             "Quen_runtimeFsPath(" + q(loop / "x" / "..") + ")", "Quen_runtimeFsPath(\"relative\")",
             "Quen_allocString(" + q(loop.native() + "/") + ")"}));
}

// Path: resolve.

TEST_F(Calls, OfResolveWithATextAskForNoTextButTheReceivers) {
  char operand[] = "c/";

  quen_io_Path_resolve(self("a"), operand);

  EXPECT_EQ(recorder.calls(),
            (Lines{"hasObjectMagic(no object) -> false", "Quen_filePathFromObject(self) -> \"a\"",
                   "Quen_runtimeFsPath(\"a\")", "Quen_runtimeFsPath(\"c/\")",
                   "Quen_pathHasExplicitWindowsRoot(\"a\") -> false",
                   "Quen_pathHasExplicitWindowsRoot(\"c/\") -> false",
                   "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                   "Quen_allocTypedPathObjectFromPath(\"a/c/\", false, false, false)"}));
}

TEST_F(Calls, OfResolveWithAnObjectTakeTheOperandFirst) {
  void* operand = named("operand", newPath("c"));

  for (const auto resolve :
       {quen_io_Path_resolve, quen_io_Path_resolve__dup2, quen_io_Path_resolve__dup3}) {
    quen::recording::Recorder again;
    again.names = recorder.names;
    void* receiver = newPath("a");
    again.names[receiver] = "self";
    resolve(receiver, operand);

    EXPECT_EQ(again.calls(),
              (Lines{"hasObjectMagic(operand) -> true", "Quen_filePathFromObject(operand) -> \"c\"",
                     "Quen_getField_i64(operand, \"_hasParentTraversal\") -> 0",
                     "Quen_filePathFromObject(self) -> \"a\"", "Quen_runtimeFsPath(\"a\")",
                     "Quen_runtimeFsPath(\"c\")", "Quen_pathHasExplicitWindowsRoot(\"a\") -> false",
                     "Quen_pathHasExplicitWindowsRoot(\"c\") -> false",
                     "Quen_getField_i64(self, \"_hasParentTraversal\") -> 0",
                     "Quen_allocTypedPathObjectFromPath(\"a/c\", true, false, false)"}));
  }
}

TEST_F(Calls, OfResolveAskForTheSecondRootOnlyAfterANoAndNothingOfAReplacedReceiver) {
  char operand[] = "/c";
  recorder.windowsRoots = {"a"};

  quen_io_Path_resolve(self("a"), operand);

  EXPECT_EQ(recorder.calls(),
            (Lines{"hasObjectMagic(no object) -> false", "Quen_filePathFromObject(self) -> \"a\"",
                   "Quen_runtimeFsPath(\"a\")", "Quen_runtimeFsPath(\"/c\")",
                   "Quen_pathHasExplicitWindowsRoot(\"a\") -> true",
                   "Quen_allocTypedPathObjectFromPath(\"/c\", true, true, false)"}));
}

TEST_F(Calls, OfResolvePassTheRootOfTheOperand) {
  char operand[] = "../c";
  recorder.windowsRoots = {"../c"};

  quen_io_Path_resolve(self("a"), operand);

  EXPECT_EQ(recorder.calls().back(), "Quen_allocTypedPathObjectFromPath(\"c\", true, true, true)");
}

TEST_F(Calls, OfResolveStopAtWhatIsNull) {
  quen_io_Path_resolve(self("a"), nullptr);
  quen_io_Path_resolve(nullptr, nullptr);

  EXPECT_EQ(recorder.calls(), Lines(2, "hasObjectMagic(null) -> false"));
}

TEST_F(Calls, OfResolvePathPassTheRootOfEither) {
  recorder.windowsRoots = {"b"};

  quen_io_Path__resolvePath("a", "b");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_pathHasExplicitWindowsRoot(\"a\") -> false",
                   "Quen_pathHasExplicitWindowsRoot(\"b\") -> true", "Quen_runtimeFsPath(\"a\")",
                   "Quen_runtimeFsPath(\"b\")", "Quen_allocPathString(\"a/b\", true)"}));
}

TEST_F(Calls, OfResolvePathHandOneTextOutWhenTheOtherIsEmpty) {
  quen_io_Path__resolvePath("", "x/.");
  quen_io_Path__resolvePath(nullptr, nullptr);
  quen_io_Path__resolvePath("x/.", nullptr);

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_allocString(\"x/.\")", "Quen_allocString(\"\")",
                                     "Quen_allocString(\"x/.\")"}));
}

// Path: names, kind, roots.

TEST_F(Calls, OfTheNameSpellItWithTheRootFlagEvenWhenThereIsNone) {
  for (const Entry& name : {Entry(quen_io_Path_name), Entry(__quen_propget_quen_io_Path_name)}) {
    name(self("a/b"));
  }
  quen_io_Path__pathName("a/");
  quen_io_Path__pathName("/");
  quen_io_Path__pathName("");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"a/b\"", "Quen_runtimeFsPath(\"a/b\")",
                   "Quen_allocPathString(\"b\", true)", "Quen_filePathFromObject(self) -> \"a/b\"",
                   "Quen_runtimeFsPath(\"a/b\")", "Quen_allocPathString(\"b\", true)",
                   "Quen_runtimeFsPath(\"a/\")", "Quen_allocPathString(\"\", true)",
                   "Quen_runtimeFsPath(\"/\")", "Quen_allocPathString(\"\", true)",
                   "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfTheExtensionSpellItWithTheRootFlagEvenWhenThereIsNone) {
  for (const Entry& extension :
       {Entry(quen_io_Path_extension), Entry(__quen_propget_quen_io_Path_extension)}) {
    extension(self("a.b"));
  }
  quen_io_Path__pathExtension(".a");
  quen_io_Path__pathExtension("");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"a.b\"", "Quen_runtimeFsPath(\"a.b\")",
                   "Quen_visiblePathString(\".b\", true)", "Quen_allocString(\"b\")",
                   "Quen_filePathFromObject(self) -> \"a.b\"", "Quen_runtimeFsPath(\"a.b\")",
                   "Quen_visiblePathString(\".b\", true)", "Quen_allocString(\"b\")",
                   "Quen_runtimeFsPath(\".a\")", "Quen_visiblePathString(\"\", true)",
                   "Quen_allocString(\"\")", "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfTheKindAskTheRuntimeUnlessThePathIsEmpty) {
  recorder.kinds["x"] = QuenPathEntryKind::kDirectory;

  quen_io_Path__pathKindPath("x");
  quen_io_Path__pathKindPath("");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(\"x\")", "Quen_pathEntryKind(\"x\") -> 2",
                   "Quen_allocString(\"directory\")", "Quen_allocString(\"unknown\")"}));
}

TEST_F(Calls, OfTheRootsMakeAListOfOne) {
  quen_io_Path__rootStringsNative();

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_allocObject(\"ArrayList\")", "Quen_allocString(\"/\")",
                                     "quen_collections_ArrayList_add(ArrayList, String \"/\")"}));
}

// Changes to an entry. No kind is ever recorded.

TEST_F(Calls, OfRemoveAndTouchTakeTheTextAndConvertItOnce) {
  const fs::path file = scratch / "file";
  void* path = self(file.native());

  quen_io_Path_touch(path);
  quen_io_FilePath_touch(path);
  quen_io_Path_remove(path);

  Lines expected;
  for (int i = 0; i < 3; ++i) {
    expected.push_back("Quen_filePathFromObject(self) -> " + q(file));
    expected.push_back("Quen_runtimeFsPath(" + q(file) + ")");
  }
  EXPECT_EQ(recorder.calls(), expected);
}

TEST_F(Calls, OfRenameStoreTheTargetAsJoinedWithTheRootOfTheOldText) {
  const fs::path file = scratch.file("a.txt");
  recorder.windowsRoots = {file.native()};

  quen_io_Path_rename(self(file.native()), "./b.txt");

  const fs::path target = scratch / "./b.txt";
  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> " + q(file),
                   "Quen_pathHasExplicitWindowsRoot(" + q(file) + ") -> true",
                   "Quen_runtimeFsPath(" + q(file) + ")", "Quen_runtimeFsPath(\"./b.txt\")",
                   "Quen_allocPathString(" + q(target) + ", true)",
                   "Quen_setField_ptr(self, \"_path\", String " + q(target) + ")"}));
}

TEST_F(Calls, OfAFailedRenameRaiseAndStoreNothing) {
  quen_io_Path_rename(self("/nowhere/a"), "b");

  EXPECT_EQ(raised(), "IOException: Cannot rename path");
  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_filePathFromObject(self) -> \"/nowhere/a\"",
                   "Quen_pathHasExplicitWindowsRoot(\"/nowhere/a\") -> false",
                   "Quen_runtimeFsPath(\"/nowhere/a\")", "Quen_runtimeFsPath(\"b\")",
                   "Quen_raise(\"IOException\", \"Cannot rename path\")"}));
}

TEST_F(Calls, OfMakingDirectoriesConvertTheTextOnce) {
  const fs::path one = scratch / "one";
  const fs::path three = scratch / "a/b/c";

  quen_io_FolderPath__mkdirNative(one.c_str());
  quen_io_FolderPath__mkdirsNative(three.c_str());

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(" + q(one) + ")", "Quen_runtimeFsPath(" + q(three) + ")"}));
}

// The guard's own conversion, then the two homes, then the removal's.
TEST_F(Calls, OfRecursiveRemovalConvertTheTextForTheGuardAndForTheRemoval) {
  const fs::path tree = scratch.folder("tree");
  quen_io_FolderPath__removeAllNative(tree.c_str());
  quen::recording::Recorder again;

  quen_io_FolderPath__removeAllNative(tree.c_str());

  EXPECT_EQ(again.calls(), Lines(2, "Quen_runtimeFsPath(" + q(tree) + ")"));
}

TEST(DISABLED_Fresh, TheGuardConvertsTheHomesOnceAndTheQuenHomeFirst) {
  quen::recording::Recorder recorder;
  setenv("QUEN_HOME", "/quen", 1);
  setenv("HOME", "/home/ada", 1);

  Quen_isUnsafeRecursiveDeletePath("a/../b");
  Quen_isUnsafeRecursiveDeletePath("/");
  Quen_isUnsafeRecursiveDeletePath("/x");
  Quen_isUnsafeRecursiveDeletePath("/y");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(\"/\")", "Quen_runtimeFsPath(\"/x\")",
                   "Quen_runtimeFsPath(\"/quen\")", "Quen_runtimeFsPath(\"/home/ada\")",
                   "Quen_runtimeFsPath(\"/y\")"}));
}

TEST_F(Calls, OfTheGuardConvertTheHomesOnceAndTheQuenHomeFirst) {
  inFreshProcess("DISABLED_Fresh.TheGuardConvertsTheHomesOnceAndTheQuenHomeFirst");
}

TEST_F(Calls, OfARefusedRemovalConvertNothingMore) {
  quen_io_FolderPath__removeAllNative("x/..");

  const std::string message = "Recursive deletion rejects unsafe root or parent traversal";
  EXPECT_EQ(raised(), "IOException: " + message);
  EXPECT_EQ(recorder.calls(), Lines{"Quen_raise(\"IOException\", \"" + message + "\")"});
}

// Listing.

TEST_F(Calls, OfListingGoKindRecordTextStringListForEachEntry) {
  const fs::path file = scratch.file("only");

  quen_io_FolderPath__listNamesNative((scratch.path().native() + "/").c_str());

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_allocObject(\"ArrayList\")",
                   "Quen_runtimeFsPath(" + q(scratch.path().native() + "/") + ")",
                   "Quen_pathEntryKind(" + q(file) + ") -> 1",
                   "Quen_cachePathEntryKind(" + q(file) + ", 1)",
                   "Quen_visiblePathString(\"only\", false)", "Quen_allocString(\"only\")",
                   "quen_collections_ArrayList_add(ArrayList, String \"only\")"}));
}

TEST_F(Calls, OfListingMakeTheListFirstAndRaiseLast) {
  quen_io_FolderPath__listNamesNative("/nowhere");
  EXPECT_EQ(raised(), "IOException: Cannot enumerate directory");
  quen_io_FolderPath__listNamesNative(nullptr);

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_allocObject(\"ArrayList\")", "Quen_runtimeFsPath(\"/nowhere\")",
                   "Quen_raise(\"IOException\", \"Cannot enumerate directory\")",
                   "Quen_allocObject(\"ArrayList\")"}));
}

class SilentFailure : public std::exception {
 public:
  const char* what() const noexcept override { return ""; }
};

class NullFailure : public std::exception {
 public:
  const char* what() const noexcept override { return nullptr; }
};

// Two entries, so that one name has been gathered when the second fails.
TEST_F(Calls, ThatThrowWhileListingBecomeAnExceptionWithTheirWords) {
  struct Case {
    std::function<void()> fail;
    std::string raises;
  };
  const std::vector<Case> cases{
      {[] { throw std::runtime_error("in so many words"); }, "in so many words"},
      {[] { throw std::bad_alloc(); }, std::bad_alloc().what()},
      {[] { throw SilentFailure(); }, "Cannot enumerate directory"},
      {[] { throw NullFailure(); }, "Cannot enumerate directory"},
      {[] { throw 42; }, "Cannot enumerate directory"},
  };
  scratch.file("a");
  scratch.file("b");

  for (const std::string operation :
       {"Quen_pathEntryKind", "Quen_cachePathEntryKind", "Quen_visiblePathString",
        "Quen_allocString", "quen_collections_ArrayList_add"}) {
    for (const Case& each : cases) {
      SCOPED_TRACE(operation + " " + each.raises);
      quen::recording::Recorder again;
      int asked = 0;
      again.interfere = [&](const std::string& name) {
        if (name == operation && ++asked == 2) each.fail();
      };

      void* names = quen_io_FolderPath__listNamesNative(scratch.path().c_str());

      EXPECT_EQ(raised(), "IOException: " + each.raises);
      EXPECT_EQ(listElements(names).size(), 1u);
      EXPECT_EQ(again.raises(), 1);
    }
  }
}

TEST_F(Calls, ThatThrowInTheConversionWhileListingLeaveAnEmptyList) {
  recorder.interfere = [](const std::string& operation) {
    if (operation == "Quen_runtimeFsPath") throw std::length_error("too long");
  };

  void* names = quen_io_FolderPath__listNamesNative(scratch.path().c_str());

  EXPECT_EQ(raised(), "IOException: too long");
  EXPECT_EQ(listElements(names).size(), 0u);
}

// The list itself is made outside of what is guarded.
TEST_F(Calls, ThatThrowInMakingTheListLeaveTheEntryPoint) {
  recorder.interfere = [](const std::string& operation) {
    if (operation == "Quen_allocObject") throw std::bad_alloc();
  };

  EXPECT_THROW(quen_io_FolderPath__listNamesNative("/"), std::bad_alloc);
}

// Reading.

TEST_F(Calls, OfReadingAWholeTextAskOnceWhetherItFailed) {
  const fs::path file = scratch.file("file", "text");

  quen_io_FileReader__readAllTextPath(file.c_str());
  quen_io_FileInputStream__readTextFromOffsetPath(file.c_str(), 2);
  quen_io_FileInputStream__readTextFromOffsetPath(file.c_str(), 9);

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(" + q(file) + ")", "Quen_hasPendingError() -> 0",
                   "Quen_allocString(\"text\")", "Quen_runtimeFsPath(" + q(file) + ")",
                   "Quen_hasPendingError() -> 0", "Quen_allocString(\"xt\")",
                   "Quen_runtimeFsPath(" + q(file) + ")", "Quen_hasPendingError() -> 0",
                   "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfAFailedReadRaiseOnceAndStillMakeAString) {
  const fs::path invalid = scratch.file("invalid", "abc\x80");
  const std::string message = "File is not valid UTF-8 at byte 3";

  quen_io_FileReader__readAllTextPath("");
  EXPECT_EQ(raised(), "IOException: File path is empty");
  quen_io_FileReader__readAllTextPath("/nowhere");
  EXPECT_EQ(raised(), "IOException: Cannot open file");
  quen_io_FileReader__readAllTextPath(invalid.c_str());
  EXPECT_EQ(raised(), "IOException: " + message);

  EXPECT_EQ(
      recorder.calls(),
      (Lines{"Quen_raise(\"IOException\", \"File path is empty\")", "Quen_hasPendingError() -> 1",
             "Quen_allocString(\"\")", "Quen_runtimeFsPath(\"/nowhere\")",
             "Quen_raise(\"IOException\", \"Cannot open file\")", "Quen_hasPendingError() -> 1",
             "Quen_allocString(\"\")", "Quen_runtimeFsPath(" + q(invalid) + ")",
             "Quen_hasPendingError() -> 0", "Quen_raise(\"IOException\", \"" + message + "\")",
             "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfReadingAPrefixDoNotAskForAPendingException) {
  const fs::path file = scratch.file("file", "text");

  quen_io_FileReader__readPrefixPath(file.c_str(), 2);
  quen_io_FileReader__readPrefixPath(file.c_str(), 0);

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_runtimeFsPath(" + q(file) + ")",
                                     "Quen_allocString(\"te\")", "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfReadingBytesTouchTheDestinationOnlyWithBytesInHand) {
  const fs::path file = scratch.file("file", "0123456789");
  void* destination = named("destination", newByteArray(4));

  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 6, destination, 100), 4);
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 10, destination, 100), 0);
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 6, destination, 0), 0);

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_runtimeFsPath(" + q(file) + ")",
                                     "Quen_writeByteArrayData(destination, 4) -> true",
                                     "Quen_runtimeFsPath(" + q(file) + ")"}));
}

TEST_F(Calls, ThatRefuseAByteArrayRaiseTheirWordsOrOurs) {
  const fs::path file = scratch.file("file", "kept");
  void* bytes = newByteArray({1, 2});

  for (const std::string words : {"", "in so many words"}) {
    SCOPED_TRACE(words);
    recorder.refusal = words;
    const std::string expected = "TypeError: " + (words.empty() ? "Expected Byte[]" : words);

    EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 0, bytes, 2), 0);
    EXPECT_EQ(raised(), expected);
    quen_io_Files__writeBytesPath(file.c_str(), bytes);
    EXPECT_EQ(raised(), expected);
    quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P", bytes);
    EXPECT_EQ(raised(), expected);
    quen_io_FileOutputStream__appendBytesPath(file.c_str(), bytes);
    EXPECT_EQ(raised(), expected);
  }
  EXPECT_EQ(recorder.raises(), 8);
  EXPECT_EQ(contents(file), "kept");
}

TEST_F(Calls, OfReadingStrictlyDoNotAskForAPendingException) {
  const fs::path file = scratch.file("file", "a\0\x80");

  quen_io_toml_TOML__readStrictPath(file.c_str());
  quen_io_toml_TOML__readStrictPath("/nowhere");
  EXPECT_EQ(raised(), "IOException: Cannot open file");

  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(" + q(file) + ")", "Quen_allocString(\"a\")",
                   "Quen_runtimeFsPath(\"/nowhere\")",
                   "Quen_raise(\"IOException\", \"Cannot open file\")", "Quen_allocString(\"\")"}));
}

TEST_F(Calls, OfARefusedDocumentRaiseItsOwnClass) {
  const fs::path file = scratch.file("file", std::string_view("\x80\0", 2));
  const std::string message = "Raw U+0000 is not allowed in TOML input at byte 1";

  quen_io_toml_TOML__readStrictPath(file.c_str());

  EXPECT_EQ(raised(), "quen.io.toml.TOMLParseException: " + message);
  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(" + q(file) + ")",
                   "Quen_raise(\"quen.io.toml.TOMLParseException\", \"" + message + "\")",
                   "Quen_allocString(\"\")"}));
}

// Writing.

TEST_F(Calls, OfOneShotWritingReadTheBytesBeforeThePathIsConverted) {
  const fs::path file = scratch / "file";
  const std::string converted = "Quen_runtimeFsPath(" + q(file) + ")";
  void* bytes = named("bytes", newByteArray({1, 2}));

  quen_io_FileWriter__truncatePath(file.c_str());
  quen_io_FileOutputStream__truncatePath(file.c_str());
  quen_io_FileWriter__appendPath(file.c_str(), "a");
  quen_io_FileOutputStream__appendTextPath(file.c_str(), nullptr);
  quen_io_FileWriter__writePath(file.c_str(), "b");
  quen_io_Files__writeBytesPath(file.c_str(), nullptr);
  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P", bytes);
  quen_io_FileOutputStream__appendBytesPath(file.c_str(), bytes);

  const std::string read = "Quen_readByteArrayData(bytes) -> true";
  EXPECT_EQ(recorder.calls(), (Lines{converted, converted, converted, converted, converted,
                                     converted, converted, read, converted, read, converted}));
}

TEST_F(Calls, OfAppendingBytesHandANullToTheRuntime) {
  quen_io_FileOutputStream__appendBytesPath("/nowhere", nullptr);

  EXPECT_EQ(raised(), "TypeError: Expected Byte[] but got null");
  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_readByteArrayData(null) -> false",
                   "Quen_raise(\"TypeError\", \"Expected Byte[] but got null\")"}));
}

TEST_F(Calls, OfAFailedTruncationKeepWritePathFromItsSecondStep) {
  quen_io_FileWriter__writePath("/nowhere/a", "text");

  EXPECT_EQ(raised(), "IOException: Cannot open file for writing");
  EXPECT_EQ(recorder.calls(),
            (Lines{"Quen_runtimeFsPath(\"/nowhere/a\")",
                   "Quen_raise(\"IOException\", \"Cannot open file for writing\")"}));
}

// A raise is all that a writer's call asks for, besides the one conversion.
TEST_F(Calls, OfWriterHandlesRaiseAndConvertAndNothingElse) {
  const fs::path file = scratch / "file";

  const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), 0);
  quen_io_FileWriter__writeHandle(handle, "a");
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  quen_io_FileWriter__writeHandle(handle, "a");
  EXPECT_EQ(raised(), "IOException: File writer is closed");

  EXPECT_EQ(recorder.calls(), (Lines{"Quen_runtimeFsPath(" + q(file) + ")",
                                     "Quen_raise(\"IOException\", \"File writer is closed\")"}));
}

TEST_F(Calls, OfPublishingConvertTheTargetOnce) {
  const fs::path index = scratch / "index";

  quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), "content");

  EXPECT_EQ(recorder.calls(), Lines{"Quen_runtimeFsPath(" + q(index) + ")"});
}

// By the time the exception is raised, the temporary has been cleaned up.
TEST_F(Calls, OfAFailedPublicationRaiseAfterCleaningUp) {
  const fs::path index = scratch.folder("index");
  std::string seenAtTheRaise;
  recorder.interfere = [&](const std::string& operation) {
    if (operation == "Quen_raise") seenAtTheRaise = namesIn(scratch.path());
  };

  quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), "content");

  EXPECT_EQ(raised(), "IOException: Cannot atomically publish document index");
  EXPECT_EQ(seenAtTheRaise, "index");
}

// Every way to fail raises exactly once.
TEST_F(Calls, OfEveryFailureRaiseOnce) {
  const fs::path folder_ = scratch.folder("folder");
  const fs::path file = scratch.file("file", "\x80");
  void* noArray = newString("no array");
  const std::vector<std::function<void()>> failures{
      [] { quen_io_Path__exists(nullptr); },
      [] { quen_io_Path_remove(nullptr); },
      [] { quen_io_Path_remove(newPath("/nowhere")); },
      [] { quen_io_Path_rename(nullptr, "a"); },
      [] { quen_io_Path_rename(newPath("a"), nullptr); },
      [] { quen_io_Path_rename(newPath("/nowhere/a"), "b"); },
      [] { quen_io_FilePath_touch(nullptr); },
      [&] { quen_io_Path_touch(newPath(folder_.native())); },
      [&] { quen_io_Path_touch(newPath((file / "below").native())); },
      [] { quen_io_FolderPath__mkdirNative(nullptr); },
      [&] { quen_io_FolderPath__mkdirNative(file.c_str()); },
      [] { quen_io_FolderPath__mkdirNative("/nowhere/a"); },
      [] { quen_io_FolderPath__mkdirsNative(""); },
      [&] { quen_io_FolderPath__mkdirsNative(file.c_str()); },
      [&] { quen_io_FolderPath__mkdirsNative((file / "below").c_str()); },
      [] { quen_io_FolderPath__removeAllNative(""); },
      [] { quen_io_FolderPath__removeAllNative("/"); },
      [&] { quen_io_FolderPath__removeAllNative((file / "below").c_str()); },
      [] { quen_io_FolderPath__listNamesNative("/nowhere"); },
      [&] { quen_io_FolderPath__listNamesNative(file.c_str()); },
      [] { quen_io_FileReader__readAllTextPath(nullptr); },
      [] { quen_io_FileReader__readAllTextPath("/nowhere"); },
      [&] { quen_io_FileReader__readAllTextPath(file.c_str()); },
      [&] { quen_io_FileInputStream__readTextFromOffsetPath(file.c_str(), 1); },
      [] { quen_io_FileReader__readPrefixPath(nullptr, 0); },
      [] { quen_io_FileReader__readPrefixPath("/nowhere", 1); },
      [&] { quen_io_FileReader__readPrefixPath(folder_.c_str(), 1); },
      [&] { quen_io_FileReader__readPrefixPath(file.c_str(), 1); },
      [] { quen_io_FileInputStream__readBytesPath(nullptr, 0, nullptr, 1); },
      [] { quen_io_FileInputStream__readBytesPath("/nowhere", 0, nullptr, 1); },
      [&] { quen_io_FileInputStream__readBytesPath(folder_.c_str(), 0, nullptr, 1); },
      [&] { quen_io_FileInputStream__readBytesPath(file.c_str(), 0, nullptr, 1); },
      [] { quen_io_FileWriter__truncatePath(nullptr); },
      [&] { quen_io_FileWriter__truncatePath(folder_.c_str()); },
      [] { quen_io_FileWriter__appendPath(nullptr, "a"); },
      [&] { quen_io_FileWriter__appendPath(folder_.c_str(), "a"); },
      [] { quen_io_FileWriter__writePath("", "a"); },
      [&] { quen_io_FileWriter__writePath(folder_.c_str(), "a"); },
      [&] { quen_io_Files__writeBytesPath("", noArray); },
      [&] { quen_io_Files__writeBytesPath(file.c_str(), noArray); },
      [&] { quen_io_Files__writeBytesPath(folder_.c_str(), nullptr); },
      [&] { quen_io_FileOutputStream__appendBytesPath("", noArray); },
      [&] { quen_io_FileOutputStream__appendBytesPath(file.c_str(), nullptr); },
      [&] { quen_io_FileOutputStream__appendBytesPath(folder_.c_str(), newByteArray(1)); },
      [] { quen_io_FileWriter__openPath(nullptr, 0); },
      [] { quen_io_FileWriter__openPath("/nowhere/a", 1); },
      [] { quen_io_FileWriter__writeHandle(0, "a"); },
      [] { quen_io_FileWriter__flushHandle(1'000'000); },
      [] { quen_io_toml_TOML__readStrictPath(""); },
      [&] { quen_io_toml_TOML__readStrictPath(file.c_str()); },
      [] { quen_data_internal_DocumentIndexStore__writeAtomic(nullptr, ""); },
      [] { quen_data_internal_DocumentIndexStore__writeAtomic("/nowhere/a", ""); },
      [&] { quen_data_internal_DocumentIndexStore__writeAtomic(folder_.c_str(), ""); },
  };

  for (std::size_t i = 0; i < failures.size(); ++i) {
    SCOPED_TRACE(i);
    const int before = recorder.raises();
    failures[i]();
    EXPECT_EQ(recorder.raises(), before + 1);
    EXPECT_NE(raised(), "");
  }
}

}  // namespace
