// Working directories that are gone: removed, or on a FUSE file system whose server was killed.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/differential/odd_mount.h"
#include "tests/environments/every_call.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

int enterRemovedFolder(const Story&) {
  if (mkdir("removed", 0700) != 0 || chdir("removed") != 0 || rmdir("../removed") != 0) {
    return errno;
  }
  return getcwd(nullptr, 0) == nullptr && errno == ENOENT ? 0 : kNoEffect;
}

TEST(Environments, RemovedWorkingDirectory) {
  const std::string told = expectSameIn({.enter = enterRemovedFolder});
  if (testing::Test::IsSkipped()) return;

  EXPECT_GT(count(told, "raised: IOException: Recursive deletion rejects unsafe root"), 0)
      << "a relative path has no absolute form";
}

#ifndef QUEN_IO_ODD_FS
TEST(Environments, WorkingDirectoryOfADeadServer) { GTEST_SKIP() << "libfuse3-dev was not found"; }
#else

int enterDeadFolder(const Story& child) {
  const fs::path folder = child / "dead";
  fs::create_directory(folder);
  const pid_t server = mountOddFs(folder);
  if (server == -1) return ENODEV;
  const bool entered = chdir(folder.c_str()) == 0;
  killServer(server);
  struct stat status {};
  return entered && stat(".", &status) == -1 && errno == ENOTCONN ? 0 : kNoEffect;
}

TEST(Environments, WorkingDirectoryOfADeadServer) {
  const std::string told =
      expectSameIn({.enter = enterDeadFolder,
                    .cleanUp = [](const Story& story) { unmountOddFs(story / "dead"); },
                    .prefixes = {"relative ", "@/absolute ", "@/dead/"}});
  if (testing::Test::IsSkipped()) return;

  EXPECT_GT(count(told, "raised: IOException: Cannot access path"), 0) << "ENOTCONN is no absence";
}
#endif

}  // namespace
}  // namespace quen::differential
