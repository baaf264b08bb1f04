#include "tests/support/child_process.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace quen::tests {

namespace {

constexpr int kNobody = 65534;

// GoogleTest passes when its filter matches no test, so the name is looked up first.
bool isTest(std::string_view name) {
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      if (name == std::string(suite.name()) + '.' + suite.GetTestInfo(j)->name()) return true;
    }
  }
  return false;
}

// The wait status: 0 when the child exited with status 0.
int waitStatusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
  return status;
}

}  // namespace

void inChild(const std::function<void()>& body) {
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    body();
    static_cast<void>(std::fflush(nullptr));
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  EXPECT_EQ(waitStatusOf(child), 0) << "the child failed";
}

void inUnprivilegedChild(const std::function<void()>& body) {
  inChild([&body] {
    if (geteuid() == 0) {
      ASSERT_EQ(setgroups(0, nullptr), 0);
      ASSERT_EQ(setgid(kNobody), 0);
      ASSERT_EQ(setuid(kNobody), 0);
    }
    body();
  });
}

void inFreshProcess(std::string_view test) {
  ASSERT_TRUE(isTest(test)) << "there is no test " << test;
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // Under user-mode emulation /proc/self/exe names the test program, which needs its emulator.
    const char* emulator = std::getenv("QUEN_IO_EMULATOR");
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    const std::string command =
        (emulator == nullptr ? "" : std::string(emulator) + ' ') + program +
        " --gtest_also_run_disabled_tests --gtest_filter=" + std::string(test);
    execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  EXPECT_EQ(waitStatusOf(child), 0) << test << " failed in its fresh process";
}

void runDisabledTwinInFreshProcess() {
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  inFreshProcess(std::string(test.test_suite_name()) + ".DISABLED_" + test.name());
}

}  // namespace quen::tests
