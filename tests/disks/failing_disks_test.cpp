// What every operation does where the system refuses: disks that are full or may only be read, no
// more descriptors, no permission, no working directory.

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

namespace {

using quen::tests::BoundaryTest;
using quen::tests::contents;
using quen::tests::everyOperation;
using quen::tests::expectOutcomes;
using quen::tests::inChild;
using quen::tests::inUnprivilegedChild;
using quen::tests::kNew;
using quen::tests::kSanitized;
using quen::tests::namesIn;
using quen::tests::openFiles;
using quen::tests::Operation;
using quen::tests::Outcomes;
using quen::tests::unchangeable;
using quen::tests::unreachable;

// More than any disk here has room for.
const std::string kLong(std::size_t{1} << 20, 'x');

// Where nothing is, but could be looked for.
Outcomes ofWhatCannotBeMade() {
  Outcomes expected = unreachable();
  expected.touch = "IOException: Cannot create file";
  expected.removeAll = "gone";  // nothing to do
  return expected;
}

// Of a folder with "file" in it, where nothing may be changed.
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
  // Calls each entry point with a path at which nothing has to be made ready.
  template <typename Condition = quen::tests::Ordinarily>
  void expectAt(const fs::path& path, const Outcomes& expected) {
    SCOPED_TRACE(path);
    expectOutcomes<Condition>(
        scratch.path(), [&path] { return path; }, expected);
  }

  const fs::path disk = scratch.folder("disk");
};

// Disks in memory.

class MemoryDisks : public FailingDisks {
 protected:
  // Runs the body in a child that alone sees the disk, which goes away with it. Has to be the last
  // that a test does.
  void onDisk(const std::string& options, const std::function<void()>& body) const {
    inChild([&] {
      const int refusal = mountDisk(options);
      if (refusal == 0) return body();
      scratch.file("refused", std::strerror(refusal));
      // Not permitted, or the root is that of a chroot, which is not mounted. Anything else is a
      // mistake of the test.
      EXPECT_TRUE(refusal == EPERM || refusal == EACCES || refusal == ENOSYS || refusal == EINVAL);
    });
    if (fs::exists(scratch / "refused")) {
      GTEST_SKIP() << "nothing may be mounted here: " << contents(scratch / "refused");
    }
  }

  // Leaves a file that holds "old" on a disk without room, and gives the path that is to be called
  // with.
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

  // Calls each way to write a long text, and looks at what it leaves of it.
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

  // The errno of what is refused, or 0.
  int mountDisk(const std::string& options) const {
    const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                         mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", disk.c_str(), "tmpfs", 0, options.c_str()) == 0;
    return mounted ? 0 : errno;
  }
};

TEST_F(MemoryDisks, FullOfBytesTakeWhatThereIsRoomFor) {
  onDisk(ofSomePages, [this] {
    expectPartWritten(missing, 0);
    expectPartWritten(file, page);  // its own
  });
}

// The failure of a one-shot write shows in the unchecked close only.
TEST_F(MemoryDisks, FullOfBytesAreNoticedForAFewByAHandle) {
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

// All that needs no room still works.
TEST_F(MemoryDisks, FullOfBytesKeepTheOldIndex) {
  onDisk(ofSomePages, [this] {
    expectOutcomes(disk, [this] { return fullOfBytes(file); },
                   {.entry = "file of 3 bytes",
                    .text = "old",
                    .prefix = "old",
                    .bytes = "old",
                    .truncate = "",
                    .publish = "IOException: Cannot write temporary document index",
                    .remove = "gone",
                    .rename = "moved",
                    .touch = "file of 3 bytes",
                    .removeAll = "gone"});

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
    expectOutcomes(disk, [this] { return fullOfEntries(file); },
                   {.text = "old",
                    .truncate = "",
                    .replace = "new",
                    .append = "oldnew",
                    .publish = "IOException: Cannot create temporary document index",
                    .remove = "gone",
                    .rename = "moved",
                    .touch = "file of 3 bytes",
                    .removeAll = "gone"});
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

// What is in it goes, before the disk itself is refused.
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

// A folder that may not be read lists as empty.
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
  if (geteuid() != 0) expected.touch = "file of 3 bytes";  // an owner may

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

// Nothing can be opened while it lives.
class NoMoreFiles {
 public:
  NoMoreFiles() {
    const int next = dup(STDERR_FILENO);  // all below it are taken
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
    if (kSanitized) GTEST_SKIP() << "a sanitizer opens pipes to look at objects";
  }
};

// A recursive removal opens what it is to remove, before it can tell that it is no folder, or that
// it is not there.
TEST_F(TooManyOpenFiles, StopWhatOpensAFileAndNothingElse) {
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

TEST_F(TooManyOpenFiles, LeaveAFolderAndWhatIsInIt) {
  scratch.file("disk/file", "kept");
  Outcomes expected = ofAnUnchangeableFolder();
  expected.text = expected.prefix = expected.bytes = unreachable().text;
  expected.rename = std::nullopt;
  expected.list = unreachable().list;

  expectAt<NoMoreFiles>(disk, expected);
}

// The working directory.

TEST_F(FailingDisks, ARemovedWorkingDirectoryHasNothingAndTakesNothing) {
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
