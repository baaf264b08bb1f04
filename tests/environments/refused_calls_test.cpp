// System calls that a seccomp filter refuses, as the sandboxes of containers do: with EPERM, or
// with ENOSYS, as if the kernel were too old for them.

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "tests/environments/every_call.h"
#include "tests/support/sanitized.h"

namespace quen::differential {
namespace {

// Makes a system call fail in this process from now on. Returns what an Enter does.
int refuse(long call, int error) {
  const auto number = static_cast<std::uint32_t>(call);
  const auto failing = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
  std::array<sock_filter, 4> instructions = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, failing),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog program{.len = instructions.size(), .filter = instructions.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return errno;
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) return errno;
  return syscall(call, -1, 0, 0, 0, 0) == -1 && errno == error ? 0 : kNoEffect;
}

struct Call {
  const char* name;
  long number;
};

// No processor has all of them. Left out are write(2), with which the child writes its log,
// close(2), with which the test looks for leaked descriptors, and fcntl(2), which has a test of its
// own.
const std::vector<Call> kCalls = {
#ifdef SYS_stat
    {"stat", SYS_stat},
#endif
#ifdef SYS_lstat
    {"lstat", SYS_lstat},
#endif
#ifdef SYS_stat64
    {"stat64", SYS_stat64},
    {"lstat64", SYS_lstat64},
    {"fstat64", SYS_fstat64},
#endif
#ifdef SYS_newfstatat
    {"newfstatat", SYS_newfstatat},
#endif
#ifdef SYS_fstatat64
    {"fstatat64", SYS_fstatat64},
#endif
#ifdef SYS_mkdir
    {"mkdir", SYS_mkdir},
    {"rmdir", SYS_rmdir},
    {"unlink", SYS_unlink},
    {"rename", SYS_rename},
    {"readlink", SYS_readlink},
#endif
#ifdef SYS_renameat
    {"renameat", SYS_renameat},
#endif
#ifdef SYS__llseek
    {"_llseek", SYS__llseek},
#endif
#ifdef SYS_utimensat_time64
    {"utimensat_time64", SYS_utimensat_time64},
#endif
    {"statx", SYS_statx},
    {"fstat", SYS_fstat},
    {"openat", SYS_openat},
    {"openat2", SYS_openat2},
    {"mkdirat", SYS_mkdirat},
    {"unlinkat", SYS_unlinkat},
    {"renameat2", SYS_renameat2},
    {"readlinkat", SYS_readlinkat},
    {"copy_file_range", SYS_copy_file_range},
    {"getrandom", SYS_getrandom},
    {"getcwd", SYS_getcwd},
    {"getdents64", SYS_getdents64},
    {"utimensat", SYS_utimensat},
    {"faccessat2", SYS_faccessat2},
    {"lseek", SYS_lseek},
    {"read", SYS_read},
    {"ioctl", SYS_ioctl},
    {"madvise", SYS_madvise},
};

TEST(Environments, SystemCallsThatAFilterRefuses) {
  if (tests::kSanitized) GTEST_SKIP() << "sanitizers make such calls themselves";
  for (const Call& call : kCalls) {
    for (const int error : {EPERM, ENOSYS}) {
      SCOPED_TRACE(std::string(call.name) + (error == EPERM ? " with EPERM" : " with ENOSYS"));
      expectSameIn({.enter = [&](const Story&) { return refuse(call.number, error); },
                    .prefixes = {"relative "}});
      if (testing::Test::IsSkipped()) return;
    }
  }
}

// What containers refuse at once: everything that is newer than the oldest kernel.
TEST(Environments, AllNewSystemCallsRefused) {
  if (tests::kSanitized) GTEST_SKIP() << "sanitizers make such calls themselves";
  for (const int error : {EPERM, ENOSYS}) {
    SCOPED_TRACE(error);
    expectSameIn({.enter = [&](const Story&) {
      for (const long call : {SYS_statx, SYS_openat2, SYS_renameat2, SYS_copy_file_range,
                              SYS_getrandom, SYS_faccessat2, SYS_close_range}) {
        if (const int refusal = refuse(call, error); refusal != 0) return refusal;
      }
      return 0;
    }});
    if (testing::Test::IsSkipped()) return;
  }
}

// An allowed difference, "fewer system calls": fdopendir(3), through which the C++ library lists,
// asks for the flags of the descriptor first.
TEST(Environments, AFilterThatRefusesFcntlFailsTheListingOfThePlainFormOnly) {
  const Judge& judge = freshJudge();
  for (const Form* form : {&judge.plain(), &judge.module()}) {
    Story story(*form);
    std::ofstream(story / "entry") << "text";
    story.inChild([](Story& child) {
      if (const int refusal = refuse(SYS_fcntl, EPERM); refusal != 0) _exit(refusal);
      child.call("quen_io_FolderPath__listNamesNative", {text("@")});
    });
    if (count(story.told(), "ended with 0") == 0) GTEST_SKIP() << story.told();

    const bool failed = count(story.told(), "raised: IOException: Cannot enumerate directory") == 1;
    EXPECT_EQ(failed, form == &judge.plain()) << story.told();
    EXPECT_NE(failed, count(story.told(), "ArrayList: \"entry\"") == 1) << story.told();
  }
}

}  // namespace
}  // namespace quen::differential
