// Limits that a test sets for its own process.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>

namespace quen::tests {

// Sets RLIMIT_FSIZE for its lifetime: writes beyond this size fail with EFBIG, existing data stays.
// The limit also applies to the output of the process, so use it in a child process.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit{.rlim_cur = size, .rlim_max = before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() { EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0); }
  FileSizeLimit& operator=(FileSizeLimit&&) = delete;  // neither copyable nor movable

 private:
  rlimit before_{};
};

// Raises the limit of open files to this count, if the hard limit allows it.
inline bool allowOpenFiles(rlim_t count) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max < count) return false;
  limit.rlim_cur = std::max(limit.rlim_cur, count);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// Kills the process with SIGALRM when a test waits for an event that never comes, so that it fails
// instead of hanging. No test asserts how long anything takes.
class Watchdog {
 public:
  Watchdog() { alarm(kSeconds); }
  ~Watchdog() { alarm(0); }
  Watchdog& operator=(Watchdog&&) = delete;  // neither copyable nor movable

 private:
  static constexpr unsigned kSeconds = 120;
};

// What this process has mapped, in bytes; read without memory of the heap.
inline rlim_t addressSpace() {
  std::array<char, 32> text{};
  const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  const ssize_t count = read(file, text.data(), text.size() - 1);
  close(file);
  const rlim_t pages = count > 0 ? std::strtoul(text.data(), nullptr, 10) : 0;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Leaves this process so many bytes of memory beside what it has mapped. For a child process.
inline void limitMemory(std::size_t bytes) {
  const rlim_t all = addressSpace() + bytes;
  const rlimit limit{.rlim_cur = all, .rlim_max = all};
  EXPECT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
}

}  // namespace quen::tests
