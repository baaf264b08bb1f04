// Working directories that are gone: removed, or on a FUSE file system whose server was killed.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

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

// Starts the server of the FUSE file system of tests/differential/odd_fs.cpp. Returns its process,
// or -1 if it ended without mounting.
pid_t mountWithServer(const fs::path& folder) {
  std::array<int, 2> said{};
  if (pipe(said.data()) != 0) return -1;
  const pid_t server = fork();
  if (server == 0) {
    dup2(said[1], STDOUT_FILENO);
    close(said[0]);
    close(said[1]);
    execl(QUEN_IO_ODD_FS, QUEN_IO_ODD_FS, folder.c_str(), static_cast<char*>(nullptr));
    _exit(1);
  }
  close(said[1]);
  char byte = 0;
  const bool mounted = read(said[0], &byte, 1) == 1;  // its first output, after mounting
  close(said[0]);
  if (mounted) return server;
  waitpid(server, nullptr, 0);
  return -1;
}

int enterDeadFolder(const Story& child) {
  const fs::path folder = child / "dead";
  fs::create_directory(folder);
  const pid_t server = mountWithServer(folder);
  if (server == -1) return ENODEV;
  const bool entered = chdir(folder.c_str()) == 0;
  kill(server, SIGKILL);
  waitpid(server, nullptr, 0);
  struct stat status {};
  return entered && stat(".", &status) == -1 && errno == ENOTCONN ? 0 : kNoEffect;
}

void unmountDeadFolder(const Story& story) {
  const std::string folder = story / "dead";
  if (umount2(folder.c_str(), MNT_DETACH) != 0) {
    static_cast<void>(std::system(("fusermount3 -u -z " + folder + " 2>/dev/null").c_str()));
  }
}

TEST(Environments, WorkingDirectoryOfADeadServer) {
  const std::string told = expectSameIn({.enter = enterDeadFolder,
                                         .cleanUp = unmountDeadFolder,
                                         .prefixes = {"relative ", "@/absolute ", "@/dead/"}});
  if (testing::Test::IsSkipped()) return;

  EXPECT_GT(count(told, "raised: IOException: Cannot access path"), 0) << "ENOTCONN is no absence";
}
#endif

}  // namespace
}  // namespace quen::differential
