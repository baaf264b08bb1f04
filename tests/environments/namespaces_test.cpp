// Mount and user namespaces: without /proc, on a read-only root, and with ids that have no mapping.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/environments/every_call.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

// The overflow id, as which an id without a mapping appears (user_namespaces(7)).
constexpr uid_t kUnmapped = 65'534;

// Gives this process mounts of its own; an ordinary user needs a user namespace for it.
bool haveOwnMounts() {
  const int more = geteuid() == 0 ? 0 : CLONE_NEWUSER;
  return unshare(CLONE_NEWNS | more) == 0 &&
         mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

TEST(Environments, WithoutProc) {
  expectSameIn({.enter = [](const Story&) {
    if (!haveOwnMounts() || mount("none", "/proc", "tmpfs", MS_RDONLY, nullptr) != 0) return errno;
    return access("/proc/self", F_OK) == 0 ? kNoEffect : 0;
  }});
}

// Every mount becomes read-only, /dev/shm with the entries as well. A writer that was open before
// still writes.
TEST(Environments, ReadOnlyRoot) {
  const std::string told = expectSameIn({.enter = [](const Story& child) {
    mount_attr readOnly{};
    readOnly.attr_set = MOUNT_ATTR_RDONLY;
    if (!haveOwnMounts() ||
        mount_setattr(AT_FDCWD, "/", AT_RECURSIVE, &readOnly, sizeof readOnly) != 0) {
      return errno;
    }
    // The working directory still belongs to the mounts of before.
    if (chdir(child.form().folder().c_str()) != 0) return errno;
    return mkdir("new", 0700) == -1 && errno == EROFS ? 0 : kNoEffect;
  }});
  if (testing::Test::IsSkipped()) return;

  for (const char* message :
       {"Cannot open file for writing", "Cannot remove path", "Cannot rename path",
        "Cannot create file", "Cannot update file timestamp", "Cannot create directory",
        "Cannot create directories", "Cannot remove directory recursively",
        "Cannot create temporary document index"}) {
    EXPECT_GT(count(told, std::string("raised: IOException: ") + message), 0) << message;
  }
}

int leaveUserNamespace(const Story&) {
  if (unshare(CLONE_NEWUSER) != 0) return errno;
  return geteuid() == kUnmapped ? 0 : kNoEffect;
}

TEST(Environments, OwnIdsWithoutAMapping) { expectSameIn({.enter = leaveUserNamespace}); }

// Entries of a user who has no id in the namespace, where root has no power over them either.
TEST(Environments, EntriesOfAnUnmappedUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give entries away";
  constexpr uid_t kForeign = 12'345;
  const auto giveAway = [](const Story& story) {
    for (const auto& entry : fs::recursive_directory_iterator(story.form().folder())) {
      ASSERT_EQ(lchown(entry.path().c_str(), kForeign, kForeign), 0);
      if (entry.is_symlink()) continue;
      fs::permissions(entry.path(), fs::perms(entry.is_directory() ? 0755 : 0604));
    }
  };
  const std::string told = expectSameIn({.enter = leaveUserNamespace, .prepare = giveAway});
  if (testing::Test::IsSkipped()) return;

  EXPECT_GT(count(told, "raised: IOException: Cannot open file for writing"), 0);
  EXPECT_GT(count(told, "raised: IOException: Cannot update file timestamp"), 0);
}

}  // namespace
}  // namespace quen::differential
