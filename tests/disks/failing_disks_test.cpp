// Every operation where the system refuses: on a full or read-only file system, without free
// descriptors, without permission, and without a working directory.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/disks/every_operation.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

// Larger than every disk in these tests.
const std::string kLong(std::size_t{1} << 20, 'x');

// The outcomes where nothing exists and nothing can be created, but the status query succeeds.
Outcomes ofWhatCannotBeMade() {
  Outcomes expected = unreachable();
  expected.touch = "IOException: Cannot create file";
  expected.removeAll = "gone";  // a missing path is success
  return expected;
}

// The outcomes for a folder that contains "file" and cannot be changed.
Outcomes ofAnUnchangeableFolder() {
  Outcomes expected = unreachable();
  expected.entry = expected.makeFolder = expected.makeFolders = "folder";
  expected.text = "";
  expected.prefix = expected.bytes = "IOException: Failed to read file";
  expected.touch = "IOException: Path is a directory";
  expected.list = "file";
  return expected;
}

class FailingDisks : public BoundaryTest {
 protected:
  // Calls each operation with the path as it is.
  template <typename Condition = NoCondition>
  void expectAt(const fs::path& path, const Outcomes& expected) {
    SCOPED_TRACE(path);
    expectOutcomes<Condition>(
        scratch.path(), [&path] { return path; }, expected);
  }

  const fs::path disk = scratch.folder("disk");
};

// Small tmpfs file systems.

class MemoryDisks : public FailingDisks {
 protected:
  // Runs the body in a child with a mount namespace of its own, in which a tmpfs is mounted at
  // `disk`. This must be the last statement of a test, because it may skip the test.
  void onDisk(const std::string& options, const std::function<void()>& body) const {
    inChild([&] {
      const int refusal = mountDisk(options);
      if (refusal == 0) return body();
      scratch.file("refused", std::strerror(refusal));
      // Mounting is not permitted, or the root of a chroot is not a mount point (EINVAL). Any other
      // error is a mistake in the test.
      EXPECT_TRUE(refusal == EPERM || refusal == EACCES || refusal == ENOSYS || refusal == EINVAL);
    });
    if (fs::exists(scratch / "refused")) {
      GTEST_SKIP() << "mounting is not possible here: " << contents(scratch / "refused");
    }
  }

  // Fills the disk up beside a file that contains "old", and returns the path that it was given.
  fs::path fullOfBytes(const fs::path& path) const {
    makeFileAlone();
    std::ofstream filler(disk / "filler", std::ios::binary);
    while (filler << kLong << std::flush) continue;
    return path;
  }

  fs::path fullOfEntries(const fs::path& path) const {
    makeFileAlone();
    const auto made = [this](int number) {
      return std::ofstream(disk / ("filler" + std::to_string(number))).is_open();
    };
    int number = 0;
    while (made(number)) ++number;
    return path;
  }

  // Writes a long text in each way, and expects the part of it for which there is room.
  void expectPartWritten(const fs::path& path, std::size_t room) const {
    for (const Operation& operation : everyOperation()) {
      if (!operation.writesText()) continue;
      SCOPED_TRACE(operation.name);
      fullOfBytes(path);
      const auto before = openFiles();
      const bool keepsOld = operation.group == &Outcomes::append && path == file;

      EXPECT_EQ(operation.call(path, kLong), "IOException: Failed to write file");

      EXPECT_EQ(contents(path), ((keepsOld ? "old" : "") + kLong).substr(0, room));
      EXPECT_EQ(openFiles(), before);
    }
  }

  const fs::path file = disk / "file";
  const fs::path missing = disk / "missing";
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::string ofSomePages = "size=" + std::to_string(16 * page);

 private:
  void makeFileAlone() const {
    for (const fs::directory_entry& entry : fs::directory_iterator(disk)) fs::remove_all(entry);
    scratch.file("disk/file", "old");
    EXPECT_EQ(contents(file), "old");
  }

  // 0, or the errno of the call that failed.
  int mountDisk(const std::string& options) const {
    const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                         mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", disk.c_str(), "tmpfs", 0, options.c_str()) == 0;
    return mounted ? 0 : errno;
  }
};

TEST_F(MemoryDisks, FullOfBytesTakeThePartThatFits) {
  onDisk(ofSomePages, [this] {
    expectPartWritten(missing, 0);
    expectPartWritten(file, page);  // the page that it occupies already
  });
}

// One-shot writes report nothing: a few bytes stay in the filebuf until the close, which is
// unchecked.
TEST_F(MemoryDisks, FullOfBytesFailTheFlushOfAHandleButNotASmallOneShotWrite) {
  onDisk(ofSomePages, [this] {
    for (const Operation& operation : everyOperation()) {
      if (!operation.writesText()) continue;
      SCOPED_TRACE(operation.name);
      fullOfBytes(missing);
      const auto before = openFiles();
      const bool handle = std::string_view(operation.name).starts_with("a handle");

      EXPECT_EQ(operation.call(missing, kNew), handle ? "IOException: Failed to flush file" : "");

      EXPECT_EQ(contents(missing), "");
      EXPECT_EQ(openFiles(), before);
    }
  });
}

// Operations that need no space still succeed.
TEST_F(MemoryDisks, FullOfBytesKeepTheOldIndex) {
  onDisk(ofSomePages, [this] {
    Outcomes ofTheFile = ordinary();
    ofTheFile.replace = ofTheFile.append = {};
    ofTheFile.publish = "IOException: Cannot write temporary document index";
    expectOutcomes(
        disk, [this] { return fullOfBytes(file); }, ofTheFile);

    expectOutcomes(disk, [this] { return fullOfBytes(missing); },
                   {.truncate = "",
                    .publish = "IOException: Cannot write temporary document index",
                    .touch = "file of 0 bytes",
                    .makeFolder = "folder",
                    .makeFolders = "folder"});
  });
}

TEST_F(MemoryDisks, FullOfEntriesMakeNoMore) {
  onDisk("nr_inodes=16", [this] {
    expectOutcomes(
        disk, [this] { return fullOfEntries(missing); }, ofWhatCannotBeMade());
    Outcomes ofTheFile = ordinary();
    ofTheFile.publish = "IOException: Cannot create temporary document index";
    expectOutcomes(
        disk, [this] { return fullOfEntries(file); }, ofTheFile);
  });
}

TEST_F(MemoryDisks, ThatMayOnlyBeReadAreLeftAsTheyAre) {
  onDisk(ofSomePages, [this] {
    scratch.file("disk/file", "old");
    scratch.folder("disk/folder");
    scratch.file("disk/folder/file", "kept");
    ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);

    expectAt(file, unchangeable());
    expectAt(missing, ofWhatCannotBeMade());
    expectAt(disk / "folder", ofAnUnchangeableFolder());
  });
}

TEST_F(MemoryDisks, AreNotLeftByARename) {
  onDisk(ofSomePages, [this] {
    scratch.file("disk/file", "kept");
    void* path = newPath(file.native());

    quen_io_Path_rename(path, (scratch / "elsewhere").c_str());

    EXPECT_EQ(raised(), "IOException: Cannot rename path");
    EXPECT_EQ(pathText(path), file.native());
    EXPECT_EQ(contents(file), "kept");
    EXPECT_FALSE(fs::exists(scratch / "elsewhere"));
  });
}

// The contents are removed before rmdir of the mount point fails (EBUSY).
TEST_F(MemoryDisks, StayMountedWhateverIsRemoved) {
  onDisk(ofSomePages, [this] {
    quen_io_Path_remove(newPath(disk.native()));
    EXPECT_EQ(raised(), "IOException: Cannot remove path");

    scratch.folder("disk/folder");
    scratch.file("disk/folder/file", "gone");
    quen_io_FolderPath__removeAllNative(disk.c_str());
    EXPECT_EQ(raised(), "IOException: Cannot remove directory recursively");
    EXPECT_EQ(namesIn(disk), "");
  });
}

// Permissions.

class NoPermission : public FailingDisks {
 protected:
  NoPermission() { fs::permissions(scratch.path(), fs::perms(0755)); }
};

// A folder without read permission lists as empty.
TEST_F(NoPermission, BehindAClosedFolderNothingCanBeReached) {
  const fs::path file = scratch.file("disk/file", "kept");
  fs::permissions(disk, fs::perms::none);
  Outcomes expected = unreachable();
  expected.list = "";

  inUnprivilegedChild([&] {
    expectAt(file, expected);
    expectAt(disk / "missing", expected);
  });

  fs::permissions(disk, fs::perms(0755));
  EXPECT_EQ(namesIn(disk), "file");
  EXPECT_EQ(contents(file), "kept");
}

TEST_F(NoPermission, InAnUnwritableFolderEverythingIsLeftAsItIs) {
  const fs::path file = scratch.file("disk/file", "old");
  const fs::path folder = scratch.folder("disk/folder");
  scratch.file("disk/folder/file", "kept");
  fs::permissions(file, fs::perms(0444));
  fs::permissions(folder, fs::perms(0555));
  fs::permissions(disk, fs::perms(0555));
  Outcomes expected = unchangeable();
  if (geteuid() != 0) expected.touch = "file of 3 bytes";  // the owner may set the time

  inUnprivilegedChild([&] {
    expectAt(file, expected);
    expectAt(disk / "missing", ofWhatCannotBeMade());
    expectAt(folder, ofAnUnchangeableFolder());
  });

  EXPECT_EQ(namesIn(disk), "file folder");
  EXPECT_EQ(contents(file), "old");
  EXPECT_EQ(contents(folder / "file"), "kept");
}

// Descriptors.

// Lowers RLIMIT_NOFILE for its lifetime, so that nothing can be opened.
class NoMoreFiles {
 public:
  NoMoreFiles() {
    const int next = dup(STDERR_FILENO);  // the lowest free descriptor
    close(next);
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
    const rlimit limit{static_cast<rlim_t>(next), before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(open("/dev/null", O_RDONLY), -1);
  }
  ~NoMoreFiles() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
  NoMoreFiles(const NoMoreFiles&) = delete;
  NoMoreFiles& operator=(const NoMoreFiles&) = delete;

 private:
  rlimit before_{};
};

class TooManyOpenFiles : public FailingDisks {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "UBSan opens pipes to check whether memory is readable";
  }
};

// fs::remove_all opens the path as a directory first, so without descriptors it fails even for a
// file and for a missing path.
TEST_F(TooManyOpenFiles, FailOnlyTheOperationsThatOpen) {
  Outcomes ofAFile = unreachable();
  ofAFile.entry = ofAFile.touch = "file of 3 bytes";
  ofAFile.makeFolder = ofAFile.makeFolders = unchangeable().makeFolder;
  ofAFile.remove = "gone";
  ofAFile.rename = "moved";
  const auto makeFile = [this] {
    fs::remove(disk / "renamed");
    return scratch.file("disk/file", "old");
  };
  expectOutcomes<NoMoreFiles>(disk, makeFile, ofAFile);

  Outcomes ofNothing = ofWhatCannotBeMade();
  ofNothing.removeAll = unreachable().removeAll;
  ofNothing.makeFolder = ofNothing.makeFolders = "folder";
  const auto makeNothing = [this] {
    fs::remove(disk / "missing");
    return disk / "missing";
  };
  expectOutcomes<NoMoreFiles>(disk, makeNothing, ofNothing);
}

TEST_F(TooManyOpenFiles, LeaveAFolderAndItsContents) {
  scratch.file("disk/file", "kept");
  Outcomes expected = ofAnUnchangeableFolder();
  expected.text = expected.prefix = expected.bytes = unreachable().text;
  expected.rename = std::nullopt;
  expected.list = unreachable().list;

  expectAt<NoMoreFiles>(disk, expected);
}

// The working directory.

TEST_F(FailingDisks, ARemovedWorkingDirectoryIsEmptyAndAcceptsNothing) {
  Outcomes expected = ofWhatCannotBeMade();
  expected.removeAll = "IOException: Recursive deletion rejects unsafe root or parent traversal";

  inChild([&] {
    fs::current_path(disk);
    fs::remove(disk);

    expectAt("file", expected);
    expectAt("folder/file", expected);

    EXPECT_TRUE(listElements(quen_io_FolderPath__listNamesNative(".")).empty());
    EXPECT_EQ(raised(), "");
    const fs::path elsewhere = scratch.file("elsewhere", "old");
    expectAt(elsewhere, {.entry = "file of 3 bytes", .text = "old"});
  });
}

}  // namespace
