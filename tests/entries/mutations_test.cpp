#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;
using namespace std::chrono_literals;

namespace {

// Longer than NAME_MAX of any file system.
const std::string kTooLong(5000, 'n');

// A symbolic link to itself: resolving it fails with ELOOP.
fs::path loopIn(const ScratchFolder& scratch) { return scratch.link("loop", scratch / "loop"); }

bool isLink(const fs::path& path) { return fs::is_symlink(fs::symlink_status(path)); }
bool isThere(const fs::path& path) { return fs::exists(fs::symlink_status(path)); }

// Remove.

class Remove : public BoundaryTest {
 protected:
  static std::string raisedByRemoving(const fs::path& path) {
    quen_io_Path_remove(newPath(path.native()));
    return raised();
  }
};

TEST_F(Remove, TakesAFile) {
  const fs::path file = scratch.file("file", "content");
  scratch.file("other");

  EXPECT_EQ(raisedByRemoving(file), "");

  EXPECT_EQ(namesIn(scratch.path()), "other");
}

TEST_F(Remove, TakesAnEmptyFolder) {
  EXPECT_EQ(raisedByRemoving(scratch.folder("folder")), "");

  EXPECT_FALSE(isThere(scratch / "folder"));
}

TEST_F(Remove, TakesTheEntryOfEveryClassOfPath) {
  scratch.file("path");
  scratch.file("file");
  scratch.folder("folder");

  quen_io_Path_remove(newPath((scratch / "path").native()));
  quen_io_Path_remove(newFilePath((scratch / "file").native()));
  quen_io_Path_remove(newFolderPath((scratch / "folder").native()));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(Remove, TakesTheLinkAndLeavesItsTarget) {
  const fs::path file = scratch.file("target", "kept");
  const fs::path folder = scratch.folder("folder");
  scratch.file("folder/inside", "kept too");
  scratch.link("to file", file);
  scratch.link("to folder", folder);

  EXPECT_EQ(raisedByRemoving(scratch / "to file"), "");
  EXPECT_EQ(raisedByRemoving(scratch / "to folder"), "");

  EXPECT_EQ(namesIn(scratch.path()), "folder target");
  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(contents(folder / "inside"), "kept too");
}

TEST_F(Remove, TakesALinkThatLeadsNowhere) {
  EXPECT_EQ(raisedByRemoving(scratch.link("dangling", scratch / "missing")), "");
  EXPECT_EQ(raisedByRemoving(loopIn(scratch)), "");

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(Remove, TakesAPipe) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

  EXPECT_EQ(raisedByRemoving(pipe), "");

  EXPECT_FALSE(isThere(pipe));
}

TEST_F(Remove, OfAPathFromTheWorkingDirectory) {
  scratch.folder("folder");
  scratch.file("folder/file");

  inChild([this] {
    fs::current_path(scratch.path());
    EXPECT_EQ(raisedByRemoving("folder/../folder/./file"), "");
  });

  EXPECT_EQ(namesIn(scratch / "folder"), "");
}

TEST_F(Remove, OfAMissingPathRaises) {
  EXPECT_EQ(raisedByRemoving(scratch / "missing"), "IOException: Cannot remove path");
  EXPECT_EQ(raisedByRemoving(scratch / "missing/deeper"), "IOException: Cannot remove path");
}

TEST_F(Remove, OfTheSamePathTwiceRaisesTheSecondTime) {
  const fs::path file = scratch.file("file");

  EXPECT_EQ(raisedByRemoving(file), "");
  EXPECT_EQ(raisedByRemoving(file), "IOException: Cannot remove path");
}

TEST_F(Remove, OfAFolderWithSomethingInItRaisesAndLeavesBoth) {
  const fs::path folder = scratch.folder("folder");
  const fs::path file = scratch.file("folder/file", "kept");

  EXPECT_EQ(raisedByRemoving(folder), "IOException: Cannot remove path");

  EXPECT_EQ(contents(file), "kept");
}

TEST_F(Remove, OfAPathBelowAFileRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  EXPECT_EQ(raisedByRemoving(file / "x"), "IOException: Cannot remove path");
  EXPECT_EQ(raisedByRemoving(file / ""), "IOException: Cannot remove path");

  EXPECT_EQ(contents(file), "kept");
}

TEST_F(Remove, InAFolderThatMayNotBeChangedRaisesAndLeavesTheEntry) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path folder = scratch.folder("folder");
  const fs::path file = scratch.file("folder/file", "kept");
  fs::permissions(file, fs::perms::all);
  fs::permissions(folder, fs::perms(0555));

  inUnprivilegedChild(
      [&] { EXPECT_EQ(raisedByRemoving(file), "IOException: Cannot remove path"); });

  EXPECT_EQ(contents(file), "kept");
}

TEST_F(Remove, NeedsNoPermissionOfTheFileItself) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    const fs::path file = scratch.file("file");
    fs::permissions(file, fs::perms::none);

    EXPECT_EQ(raisedByRemoving(file), "");

    EXPECT_FALSE(isThere(file));
  });
}

TEST_F(Remove, OfAnEmptyPathRaises) {
  EXPECT_EQ(raisedByRemoving(""), "IOException: Path is empty");
}

TEST_F(Remove, OfWhatHasNoPathRaises) {
  for (void* object : {static_cast<void*>(nullptr), newObject("quen.io.Path"), newString("text")}) {
    quen_io_Path_remove(object);
    EXPECT_EQ(raised(), "IOException: Path is empty");
  }
}

TEST_F(Remove, LeavesTheReceiverAsItWas) {
  void* path = newPath(scratch.file("file").native());

  quen_io_Path_remove(path);

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(pathText(path), (scratch / "file").native());
}

// mkdir and mkdirs: what they have in common.

struct Making {
  void (*entryPoint)(const char*);
  const char* failure;
};

constexpr Making kOne{quen_io_FolderPath__mkdirNative, "IOException: Cannot create directory"};
constexpr Making kChain{quen_io_FolderPath__mkdirsNative, "IOException: Cannot create directories"};

class MakeAnyDirectory : public BoundaryTest, public testing::WithParamInterface<Making> {
 protected:
  static std::string raisedByMaking(const fs::path& path) {
    GetParam().entryPoint(path.c_str());
    return raised();
  }
};

INSTANTIATE_TEST_SUITE_P(, MakeAnyDirectory, testing::Values(kOne, kChain),
                         [](const auto& making) { return making.index == 0 ? "One" : "Chain"; });

TEST_P(MakeAnyDirectory, CreatesAMissingFolder) {
  EXPECT_EQ(raisedByMaking(scratch / "new"), "");

  EXPECT_TRUE(fs::is_directory(scratch / "new"));
  EXPECT_EQ(namesIn(scratch / "new"), "");
}

TEST_P(MakeAnyDirectory, AcceptsASeparatorAtTheEnd) {
  EXPECT_EQ(raisedByMaking(scratch / "new/"), "");
  EXPECT_EQ(raisedByMaking(scratch / "new/"), "");

  EXPECT_TRUE(fs::is_directory(scratch / "new"));
}

TEST_P(MakeAnyDirectory, AcceptsAFolderThatIsThereAndLeavesItAlone) {
  const fs::path folder = scratch.folder("folder");
  scratch.file("folder/file", "kept");
  const fs::file_time_type changed = fs::last_write_time(folder);

  EXPECT_EQ(raisedByMaking(folder), "");
  EXPECT_EQ(raisedByMaking("/"), "");
  EXPECT_EQ(raisedByMaking("."), "");

  EXPECT_EQ(contents(folder / "file"), "kept");
  EXPECT_EQ(fs::last_write_time(folder), changed);
}

TEST_P(MakeAnyDirectory, AcceptsALinkToAFolder) {
  const fs::path link = scratch.link("link", scratch.folder("folder"));

  EXPECT_EQ(raisedByMaking(link), "");

  EXPECT_TRUE(isLink(link));
  EXPECT_EQ(namesIn(scratch.path()), "folder link");
}

TEST_P(MakeAnyDirectory, MakesAFolderBehindALinkToAFolder) {
  const fs::path link = scratch.link("link", scratch.folder("folder"));

  EXPECT_EQ(raisedByMaking(link / "new"), "");

  EXPECT_TRUE(fs::is_directory(scratch / "folder/new"));
}

TEST_P(MakeAnyDirectory, WhereAFileIsRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");
  const fs::path link = scratch.link("link", file);

  EXPECT_EQ(raisedByMaking(file), "IOException: A non-directory path already exists");
  EXPECT_EQ(raisedByMaking(link), "IOException: A non-directory path already exists");

  EXPECT_EQ(contents(file), "kept");
  EXPECT_TRUE(isLink(link));
}

TEST_P(MakeAnyDirectory, WhereADeviceOrAPipeIsRaises) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

  EXPECT_EQ(raisedByMaking(pipe), "IOException: A non-directory path already exists");
  EXPECT_EQ(raisedByMaking("/dev/null"), "IOException: A non-directory path already exists");

  EXPECT_TRUE(fs::is_fifo(pipe));
}

// mkdir fails with EEXIST for a dangling link, although the status query reports nothing there.
TEST_P(MakeAnyDirectory, WhereALinkLeadsNowhereRaisesAndLeavesTheLink) {
  const fs::path dangling = scratch.link("dangling", scratch / "missing");
  const fs::path loop = loopIn(scratch);

  EXPECT_EQ(raisedByMaking(dangling), GetParam().failure);
  EXPECT_EQ(raisedByMaking(loop), GetParam().failure);

  EXPECT_TRUE(isLink(dangling));
  EXPECT_TRUE(isLink(loop));
  EXPECT_EQ(namesIn(scratch.path()), "dangling loop");
}

TEST_P(MakeAnyDirectory, BelowAFileRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  EXPECT_EQ(raisedByMaking(file / "new"), GetParam().failure);
  EXPECT_EQ(raisedByMaking(file / "new/deeper"), GetParam().failure);

  EXPECT_EQ(contents(file), "kept");
}

TEST_P(MakeAnyDirectory, OfATooLongNameRaises) {
  EXPECT_EQ(raisedByMaking(scratch / kTooLong), GetParam().failure);

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_P(MakeAnyDirectory, InAFolderThatMayNotBeChangedRaises) {
  fs::permissions(scratch.path(), fs::perms(0555));

  inUnprivilegedChild([this] { EXPECT_EQ(raisedByMaking(scratch / "new"), GetParam().failure); });

  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(namesIn(scratch.path()), "");
}

// Without search permission the status query fails, so mkdir is tried and fails too.
TEST_P(MakeAnyDirectory, InAFolderThatMayNotBeSearchedRaises) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path closed = scratch.folder("closed");
  scratch.folder("closed/folder");
  scratch.file("closed/file", "kept");
  fs::permissions(closed, fs::perms(0666));

  inUnprivilegedChild([&] {
    EXPECT_EQ(raisedByMaking(closed / "new"), GetParam().failure);
    EXPECT_EQ(raisedByMaking(closed / "folder"), GetParam().failure);
    EXPECT_EQ(raisedByMaking(closed / "file"), GetParam().failure);
  });

  fs::permissions(closed, fs::perms::all);
  EXPECT_EQ(namesIn(closed), "file folder");
}

TEST_P(MakeAnyDirectory, OfAnEmptyPathRaises) {
  for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
    GetParam().entryPoint(empty);
    EXPECT_EQ(raised(), "IOException: Path is empty");
  }
}

TEST_P(MakeAnyDirectory, LosingTheRaceToAFileRaisesAndLeavesIt) {
  const fs::path path = scratch / "path";

  const BeforeCall making(SystemCall::kMakeDirectory, [this] { scratch.file("path", "theirs"); });
  EXPECT_EQ(raisedByMaking(path), GetParam().failure);

  EXPECT_EQ(contents(path), "theirs");
}

// mkdir and mkdirs: where they differ.

class MakeDirectory : public BoundaryTest {
 protected:
  static std::string raisedByMaking(const fs::path& path) {
    quen_io_FolderPath__mkdirNative(path.c_str());
    return raised();
  }
};

class MakeDirectories : public BoundaryTest {
 protected:
  static std::string raisedByMaking(const fs::path& path) {
    quen_io_FolderPath__mkdirsNative(path.c_str());
    return raised();
  }
};

TEST_F(MakeDirectory, WithAMissingParentRaisesAndMakesNothing) {
  EXPECT_EQ(raisedByMaking(scratch / "a/b"), "IOException: Cannot create directory");

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_F(MakeDirectories, MakesAllMissingParents) {
  scratch.folder("old");

  EXPECT_EQ(raisedByMaking(scratch / "old/a/b/c"), "");

  EXPECT_TRUE(fs::is_directory(scratch / "old/a/b/c"));
}

TEST_F(MakeDirectories, MakesARelativeChainInTheWorkingDirectory) {
  inChild([this] {
    fs::current_path(scratch.path());
    EXPECT_EQ(raisedByMaking("a/b/c"), "");
    EXPECT_EQ(raisedByMaking("a/b/c"), "");
  });

  EXPECT_TRUE(fs::is_directory(scratch / "a/b/c"));
}

// Losing the race to create the folder is an error for mkdir and success for mkdirs.
TEST_F(MakeDirectory, LosingTheRaceToAFolderRaises) {
  const fs::path folder = scratch / "folder";

  const BeforeCall making(SystemCall::kMakeDirectory, [this] { scratch.folder("folder"); });
  EXPECT_EQ(raisedByMaking(folder), "IOException: Cannot create directory");

  EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(MakeDirectories, LosingTheRaceToAFolderAcceptsIt) {
  const fs::path folder = scratch / "folder";

  const BeforeCall making(SystemCall::kMakeDirectory, [this] { scratch.folder("folder"); });
  EXPECT_EQ(raisedByMaking(folder), "");

  EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(MakeDirectories, LosingTheRaceToAllFoldersAcceptsThem) {
  const fs::path folder = scratch / "a/b";

  const BeforeCall secondQuery(
      SystemCall::kStatus, [this] { scratch.folder("a/b"); }, 2);
  EXPECT_EQ(raisedByMaking(folder), "");

  EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(MakeDirectories, KeepsTheFoldersMadeBeforeAFailure) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    umask(0777);  // so that nothing can be created inside the new folder
    EXPECT_EQ(raisedByMaking(scratch / "a/b/c"), "IOException: Cannot create directories");
  });

  EXPECT_EQ(namesIn(scratch.path()), "a");
  fs::permissions(scratch / "a", fs::perms::all);
  EXPECT_EQ(namesIn(scratch / "a"), "");
}

// Rename.

class Rename : public BoundaryTest {
 protected:
  static std::string raisedByRenaming(void* path, const fs::path& newName) {
    quen_io_Path_rename(path, newName.c_str());
    return raised();
  }
};

TEST_F(Rename, MovesTheEntryWithinItsFolderAndTheReceiverWithIt) {
  scratch.folder("dir");
  void* path = newPath(scratch.file("dir/a.txt", "content").native());

  EXPECT_EQ(raisedByRenaming(path, "b.txt"), "");

  EXPECT_EQ(namesIn(scratch / "dir"), "b.txt");
  EXPECT_EQ(contents(scratch / "dir/b.txt"), "content");
  EXPECT_EQ(pathText(path), (scratch / "dir/b.txt").native());
}

TEST_F(Rename, OfARelativePathStaysRelative) {
  scratch.folder("dir");
  scratch.file("dir/a.txt", "in dir");
  scratch.file("top.txt", "on top");

  inChild([this] {
    fs::current_path(scratch.path());
    void* inDir = newPath("dir/a.txt");
    void* onTop = newPath("top.txt");

    EXPECT_EQ(raisedByRenaming(inDir, "b.txt"), "");
    EXPECT_EQ(raisedByRenaming(onTop, "new.txt"), "");

    EXPECT_EQ(pathText(inDir), "dir/b.txt");
    EXPECT_EQ(pathText(onTop), "new.txt");
  });

  EXPECT_EQ(contents(scratch / "dir/b.txt"), "in dir");
  EXPECT_EQ(contents(scratch / "new.txt"), "on top");
}

TEST_F(Rename, ToANameOfSeveralComponentsLandsBelowTheParent) {
  scratch.folder("dir");
  scratch.folder("dir/sub");
  void* path = newPath(scratch.file("dir/a", "content").native());

  EXPECT_EQ(raisedByRenaming(path, "sub/b"), "");

  EXPECT_EQ(contents(scratch / "dir/sub/b"), "content");
  EXPECT_EQ(namesIn(scratch / "dir"), "sub");
  EXPECT_EQ(pathText(path), (scratch / "dir/sub/b").native());
}

TEST_F(Rename, ToAnAbsoluteNameMovesTheEntryThere) {
  scratch.folder("dir");
  scratch.folder("elsewhere");
  void* path = newPath(scratch.file("dir/a", "content").native());

  EXPECT_EQ(raisedByRenaming(path, scratch / "elsewhere/b"), "");

  EXPECT_EQ(contents(scratch / "elsewhere/b"), "content");
  EXPECT_EQ(namesIn(scratch / "dir"), "");
  EXPECT_EQ(pathText(path), (scratch / "elsewhere/b").native());
}

TEST_F(Rename, GivesTheReceiverTheTargetAsJoinedAndNotNormalized) {
  scratch.folder("dir");
  scratch.file("dir/a", "content");
  const std::string parent = (scratch / "dir/../dir/./").native();
  void* path = newPath(parent + "/a");

  EXPECT_EQ(raisedByRenaming(path, "./../dir//b"), "");

  EXPECT_EQ(pathText(path), parent.substr(0, parent.size() - 1) + "/./../dir//b");
  EXPECT_EQ(contents(scratch / "dir/b"), "content");
}

TEST_F(Rename, ChangesNoOtherFieldOfTheReceiver) {
  defineClass("app.NotedPath", "quen.io.FolderPath", {"note"});
  void* path = newObject("app.NotedPath");
  void* note = newString("a note");
  Quen_setField_ptr(path, "_path", newString(scratch.folder("a").native()));
  Quen_setField_ptr(path, "note", note);

  EXPECT_EQ(raisedByRenaming(path, "../" + scratch.path().filename().native() + "/b"), "");

  EXPECT_TRUE(fs::is_directory(scratch / "b"));
  EXPECT_EQ(className(path), "app.NotedPath");
  EXPECT_EQ(Quen_getField_i64(path, "note"), reinterpret_cast<std::int64_t>(note));
  EXPECT_FALSE(hasParentTraversal(path));
}

TEST_F(Rename, LeavesTheStickyFlagOfTheReceiverSet) {
  scratch.file("a");
  void* path = quen_io_Path_normalize(newPath((scratch / "x/../a").native()));
  ASSERT_TRUE(hasParentTraversal(path));

  EXPECT_EQ(raisedByRenaming(path, "b"), "");

  EXPECT_EQ(pathText(path), (scratch / "b").native());
  EXPECT_TRUE(hasParentTraversal(path));
}

TEST_F(Rename, LeavesOtherObjectsOfTheSamePathAlone) {
  const fs::path file = scratch.file("a");
  void* path = newPath(file.native());
  void* other = newPath(file.native());

  EXPECT_EQ(raisedByRenaming(path, "b"), "");

  EXPECT_EQ(pathText(other), file.native());
}

TEST_F(Rename, ReplacesAFile) {
  void* path = newPath(scratch.file("a", "new").native());
  scratch.file("b", "old");

  EXPECT_EQ(raisedByRenaming(path, "b"), "");

  EXPECT_EQ(namesIn(scratch.path()), "b");
  EXPECT_EQ(contents(scratch / "b"), "new");
}

TEST_F(Rename, ReplacesAnEmptyFolderByAFolder) {
  scratch.folder("a");
  scratch.file("a/file", "content");
  scratch.folder("b");
  void* path = newFolderPath((scratch / "a").native());

  EXPECT_EQ(raisedByRenaming(path, "b"), "");

  EXPECT_EQ(namesIn(scratch.path()), "b");
  EXPECT_EQ(contents(scratch / "b/file"), "content");
  EXPECT_TRUE(isFolderPath(path));
}

TEST_F(Rename, ToTheSameNameSucceeds) {
  void* path = newPath(scratch.file("a", "content").native());

  EXPECT_EQ(raisedByRenaming(path, "a"), "");

  EXPECT_EQ(contents(scratch / "a"), "content");
  EXPECT_EQ(pathText(path), (scratch / "a").native());
}

TEST_F(Rename, MovesALinkAndNotItsTarget) {
  const fs::path target = scratch.file("target", "content");
  scratch.link("link", target);
  scratch.link("dangling", scratch / "missing");

  EXPECT_EQ(raisedByRenaming(newPath((scratch / "link").native()), "moved"), "");
  EXPECT_EQ(raisedByRenaming(newPath((scratch / "dangling").native()), "moved too"), "");

  EXPECT_EQ(namesIn(scratch.path()), "moved moved too target");
  EXPECT_EQ(fs::read_symlink(scratch / "moved"), target);
  EXPECT_TRUE(isLink(scratch / "moved too"));
}

// The parent of "a/" is "a" itself, and a folder cannot be moved into itself (EINVAL).
TEST_F(Rename, OfAFolderSpelledWithASeparatorAtTheEndRaises) {
  const std::string text = scratch.folder("a").native() + "/";
  void* path = newFolderPath(text);

  EXPECT_EQ(raisedByRenaming(path, "b"), "IOException: Cannot rename path");

  EXPECT_EQ(namesIn(scratch.path()), "a");
  EXPECT_EQ(pathText(path), text);
}

TEST_F(Rename, ThatFailsLeavesEntriesAndReceiver) {
  scratch.file("file", "kept");
  scratch.folder("folder");
  scratch.folder("full");
  scratch.file("full/inside", "kept too");
  const struct {
    const char* name;
    fs::path newName;
  } failing[] = {
      {"missing", "new"},           // nothing to rename
      {"missing/deeper", "new"},    // nowhere to look
      {"file/below", "new"},        // below a file
      {"file", "missing/new"},      // nowhere to put it
      {"file", "folder"},           // a file is no folder
      {"folder", "file"},           // nor the other way
      {"folder", "full"},           // what would happen to the file in it?
      {"folder", "folder/inside"},  // into itself
      {"file", "new/"},             // a file spelled as a folder
      {"file", kTooLong},
  };

  for (const auto& [name, newName] : failing) {
    SCOPED_TRACE(name + (" to " + newName.native()));
    void* path = newPath((scratch / name).native());

    EXPECT_EQ(raisedByRenaming(path, newName), "IOException: Cannot rename path");

    EXPECT_EQ(pathText(path), (scratch / name).native());
    EXPECT_EQ(namesIn(scratch.path()), "file folder full");
    EXPECT_EQ(namesIn(scratch / "folder"), "");
    EXPECT_EQ(contents(scratch / "file"), "kept");
    EXPECT_EQ(contents(scratch / "full/inside"), "kept too");
  }
}

TEST_F(Rename, InAFolderThatMayNotBeChangedRaises) {
  void* path = newPath(scratch.file("a", "kept").native());
  fs::permissions(scratch.path(), fs::perms(0555));

  inUnprivilegedChild([&] {
    EXPECT_EQ(raisedByRenaming(path, "b"), "IOException: Cannot rename path");
    EXPECT_EQ(pathText(path), (scratch / "a").native());
  });

  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(namesIn(scratch.path()), "a");
}

TEST_F(Rename, ToAnEmptyNameRaisesAndTouchesNothing) {
  void* path = newPath(scratch.file("a", "kept").native());

  for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
    quen_io_Path_rename(path, empty);
    EXPECT_EQ(raised(), "IOException: Invalid path");
  }

  EXPECT_EQ(contents(scratch / "a"), "kept");
  EXPECT_EQ(pathText(path), (scratch / "a").native());
}

TEST_F(Rename, OfWhatHasNoPathRaises) {
  for (void* object :
       {static_cast<void*>(nullptr), newPath(""), newObject("quen.io.Path"), newString("text")}) {
    quen_io_Path_rename(object, "new");
    EXPECT_EQ(raised(), "IOException: Invalid path");
    quen_io_Path_rename(object, nullptr);
    EXPECT_EQ(raised(), "IOException: Invalid path");
  }
}

// Touch, as FilePath.touch and Path.touch.

class Touch : public BoundaryTest, public testing::WithParamInterface<void (*)(void*)> {
 protected:
  static std::string raisedByTouching(const fs::path& path) {
    GetParam()(newFilePath(path.native()));
    return raised();
  }

  // Sets the modification time to two days ago.
  static fs::path aged(const fs::path& path) {
    fs::last_write_time(path, longAgo());
    return path;
  }

  static fs::file_time_type longAgo() {
    static const fs::file_time_type time = fs::file_time_type::clock::now() - 48h;
    return time;
  }

  // Expects that touching `path` raises nothing and sets the modification time of `changed` to now.
  static void expectTouched(const fs::path& path, const fs::path& changed) {
    const auto before = fs::file_time_type::clock::now();
    EXPECT_EQ(raisedByTouching(path), "");
    const auto after = fs::file_time_type::clock::now();

    EXPECT_GE(fs::last_write_time(changed), before);
    EXPECT_LE(fs::last_write_time(changed), after);
  }
};

INSTANTIATE_TEST_SUITE_P(, Touch, testing::Values(quen_io_FilePath_touch, quen_io_Path_touch),
                         [](const auto& name) { return name.index == 0 ? "FilePath" : "Path"; });

TEST_P(Touch, MakesAMissingFileEmpty) {
  EXPECT_EQ(raisedByTouching(scratch / "new"), "");

  EXPECT_TRUE(fs::is_regular_file(scratch / "new"));
  EXPECT_EQ(contents(scratch / "new"), "");
}

TEST_P(Touch, OfAFileMovesItsTimeToNowAndLeavesItsContents) {
  const fs::path file = aged(scratch.file("file", "kept"));

  expectTouched(file, file);

  EXPECT_EQ(contents(file), "kept");
}

TEST_P(Touch, MovesATimeInTheFutureBackToNow) {
  const fs::path file = scratch.file("file", "kept");
  fs::last_write_time(file, fs::file_time_type::clock::now() + 48h);

  expectTouched(file, file);
}

TEST_P(Touch, LeavesTheTimeOfTheLastAccess) {
  const fs::path file = scratch.file("file", "kept");
  const timespec times[] = {{.tv_sec = 1'000'000'000, .tv_nsec = 7},
                            {.tv_sec = 1'000'000'000, .tv_nsec = 7}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);

  expectTouched(file, file);

  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_atim.tv_sec, 1'000'000'000);
}

TEST_P(Touch, OfALinkMovesTheTimeOfItsTarget) {
  const fs::path file = aged(scratch.file("file", "kept"));
  const fs::path link = scratch.link("link", file);

  expectTouched(link, file);

  EXPECT_TRUE(isLink(link));
  EXPECT_EQ(contents(file), "kept");
}

TEST_P(Touch, OfADanglingLinkMakesItsTarget) {
  const fs::path link = scratch.link("link", scratch / "target");

  EXPECT_EQ(raisedByTouching(link), "");

  EXPECT_TRUE(isLink(link));
  EXPECT_FALSE(isLink(scratch / "target"));
  EXPECT_EQ(contents(scratch / "target"), "");
}

TEST_P(Touch, OfAPipeMovesItsTimeAndDoesNotWaitForAReader) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

  expectTouched(aged(pipe), pipe);
}

TEST_P(Touch, OfAPathFromTheWorkingDirectory) {
  inChild([this] {
    fs::current_path(scratch.path());
    EXPECT_EQ(raisedByTouching("new"), "");
  });

  EXPECT_EQ(contents(scratch / "new"), "");
}

TEST_P(Touch, OfAFolderRaisesAndLeavesItsTime) {
  const fs::path folder = aged(scratch.folder("folder"));
  const fs::path link = scratch.link("link", folder);

  EXPECT_EQ(raisedByTouching(folder), "IOException: Path is a directory");
  EXPECT_EQ(raisedByTouching(link), "IOException: Path is a directory");

  EXPECT_EQ(fs::last_write_time(folder), longAgo());
}

TEST_P(Touch, OfAnEmptyPathRaises) {
  for (void* object : {static_cast<void*>(nullptr), newFilePath(""), newObject("quen.io.Path"),
                       newString("text")}) {
    GetParam()(object);
    EXPECT_EQ(raised(), "IOException: Path is empty");
  }
}

TEST_P(Touch, WhereNoFileCanBeMadeRaises) {
  const fs::path file = aged(scratch.file("file", "kept"));
  scratch.link("link", scratch / "missing/target");

  EXPECT_EQ(raisedByTouching(scratch / "missing/file"), "IOException: Cannot create file");
  EXPECT_EQ(raisedByTouching(scratch / "link"), "IOException: Cannot create file");
  EXPECT_EQ(raisedByTouching(scratch / "new/"), "IOException: Cannot create file");
  EXPECT_EQ(raisedByTouching(file / "below"), "IOException: Cannot create file");

  EXPECT_EQ(namesIn(scratch.path()), "file link");
  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(fs::last_write_time(file), longAgo());
}

TEST_P(Touch, InAFolderThatMayNotBeChangedRaises) {
  fs::permissions(scratch.path(), fs::perms(0555));

  inUnprivilegedChild(
      [this] { EXPECT_EQ(raisedByTouching(scratch / "new"), "IOException: Cannot create file"); });

  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_P(Touch, OfWhatCannotBeLookedAtRaises) {
  const fs::path loop = loopIn(scratch);

  EXPECT_EQ(raisedByTouching(loop), "IOException: Cannot access path");
  EXPECT_EQ(raisedByTouching(loop / "file"), "IOException: Cannot access path");
  EXPECT_EQ(raisedByTouching(scratch / kTooLong), "IOException: Cannot access path");

  EXPECT_EQ(namesIn(scratch.path()), "loop");
}

TEST_P(Touch, InAFolderThatMayNotBeSearchedRaises) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path closed = scratch.folder("closed");
  aged(scratch.file("closed/file", "kept"));
  fs::permissions(closed, fs::perms(0666));

  inUnprivilegedChild([&] {
    EXPECT_EQ(raisedByTouching(closed / "file"), "IOException: Cannot access path");
    EXPECT_EQ(raisedByTouching(closed / "new"), "IOException: Cannot access path");
  });

  fs::permissions(closed, fs::perms::all);
  EXPECT_EQ(namesIn(closed), "file");
  EXPECT_EQ(fs::last_write_time(closed / "file"), longAgo());
}

// Only the owner may set an arbitrary time, even with write permission (utimensat, EPERM).
TEST_P(Touch, OfAnotherUsersEntryRaises) {
  inUnprivilegedChild([] {
    EXPECT_EQ(raisedByTouching("/dev/null"), "IOException: Cannot update file timestamp");
  });
}

TEST_P(Touch, OfAnOwnFileNeedsNoPermission) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    const fs::path file = aged(scratch.file("file", "kept"));
    fs::permissions(file, fs::perms::none);

    expectTouched(file, file);

    fs::permissions(file, fs::perms::owner_all);
    EXPECT_EQ(contents(file), "kept");
  });
}

TEST_P(Touch, LosingTheRaceToAFileLeavesItAlone) {
  const fs::path path = scratch / "path";

  const BeforeCall opening(SystemCall::kOpen, [&] { aged(scratch.file("path", "theirs")); });
  EXPECT_EQ(raisedByTouching(path), "");

  EXPECT_EQ(contents(path), "theirs");
  EXPECT_EQ(fs::last_write_time(path), longAgo());
}

TEST_P(Touch, LosingTheRaceToAFolderRaises) {
  const fs::path path = scratch / "path";

  const BeforeCall opening(SystemCall::kOpen, [this] { scratch.folder("path"); });
  EXPECT_EQ(raisedByTouching(path), "IOException: Cannot create file");

  EXPECT_TRUE(fs::is_directory(path));
}

TEST_P(Touch, ThatCannotCloseTheNewFileRaisesAndLeavesIt) {
  const FailingCall failing(SystemCall::kClose, EIO);

  EXPECT_EQ(raisedByTouching(scratch / "new"), "IOException: Cannot create file");

  EXPECT_EQ(namesIn(scratch.path()), "new");
}

// mkdir, mkdirs and touch query the status twice, and the second answer decides.

struct TwoQueries {
  const char* name;
  void (*call)(const fs::path& path);
  const char* raisedWhenRemoved;
  const char* raisedWhenAFolder;
};

constexpr const char* kNoDirectory = "IOException: A non-directory path already exists";
constexpr const char* kNoTimestamp = "IOException: Cannot update file timestamp";

constexpr TwoQueries kTwoQueries[] = {
    {"Mkdir", [](const fs::path& path) { quen_io_FolderPath__mkdirNative(path.c_str()); },
     kNoDirectory, ""},
    {"Mkdirs", [](const fs::path& path) { quen_io_FolderPath__mkdirsNative(path.c_str()); },
     kNoDirectory, ""},
    {"FileTouch", [](const fs::path& path) { quen_io_FilePath_touch(newFilePath(path.native())); },
     kNoTimestamp, "IOException: Path is a directory"},
    {"PathTouch", [](const fs::path& path) { quen_io_Path_touch(newPath(path.native())); },
     kNoTimestamp, "IOException: Path is a directory"},
};

class BetweenTheTwoQueries : public BoundaryTest, public testing::WithParamInterface<TwoQueries> {
 protected:
  // Another process changes the entry between them.
  std::string raisedWhen(const std::function<void()>& change) {
    const BeforeCall secondQuery(SystemCall::kStatus, change, 2);
    GetParam().call(path);
    return raised();
  }

  const fs::path path = scratch / "path";
};

INSTANTIATE_TEST_SUITE_P(, BetweenTheTwoQueries, testing::ValuesIn(kTwoQueries),
                         [](const auto& row) { return row.param.name; });

TEST_P(BetweenTheTwoQueries, AFolderIsRemoved) {
  scratch.folder("path");

  EXPECT_EQ(raisedWhen([this] { fs::remove(path); }), GetParam().raisedWhenRemoved);

  EXPECT_FALSE(isThere(path));
}

TEST_P(BetweenTheTwoQueries, AFileIsRemoved) {
  scratch.file("path");

  EXPECT_EQ(raisedWhen([this] { fs::remove(path); }), GetParam().raisedWhenRemoved);

  EXPECT_FALSE(isThere(path));
}

TEST_P(BetweenTheTwoQueries, AFileIsReplacedByAFolder) {
  scratch.file("path");

  const auto replace = [this] {
    fs::remove(path);
    fs::create_directory(path);
  };
  EXPECT_EQ(raisedWhen(replace), GetParam().raisedWhenAFolder);

  EXPECT_TRUE(fs::is_directory(path));
}

// All mutations.

class Mutations : public BoundaryTest {};

TEST_F(Mutations, RecordNoKinds) {
  forgetRecordedKinds();
  void* path = newPath((scratch / "a").native());

  quen_io_FilePath_touch(path);
  quen_io_FilePath_touch(path);
  quen_io_Path_rename(path, "b");
  quen_io_Path_remove(path);
  quen_io_Path_remove(path);
  EXPECT_EQ(raised(), "IOException: Cannot remove path");
  quen_io_FolderPath__mkdirNative((scratch / "folder").c_str());
  quen_io_FolderPath__mkdirsNative((scratch / "folder/a/b").c_str());
  quen_io_FolderPath__removeAllNative((scratch / "folder").c_str());

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(namesIn(scratch.path()), "");
  EXPECT_EQ(recordedKinds(), 0u);
}

TEST_F(Mutations, OfAPathWithBytesThatAreNoTextWork) {
  const std::string name = "\xFF \xC3(\n\\\xED\xA0\x80";
  void* path = newPath((scratch / "a").native());

  quen_io_FilePath_touch(path);
  quen_io_Path_rename(path, name.c_str());
  EXPECT_EQ(namesIn(scratch.path()), name);
  EXPECT_EQ(pathText(path), (scratch / name).native());

  quen_io_Path_remove(path);
  EXPECT_EQ(namesIn(scratch.path()), "");
  quen_io_FolderPath__mkdirNative((scratch / name).c_str());
  EXPECT_TRUE(fs::is_directory(scratch / name));
  EXPECT_EQ(raised(), "");
}

}  // namespace
