// Limits that a test sets to its own process.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace quen::tests {

// Lets files grow to this size and no further, for as long as it lives: what goes beyond fails, and
// what is already there stays. Output of the process counts, too, so it is for a child process.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    const rlimit limit{.rlim_cur = size, .rlim_max = before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() { EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
};

// Allows this many open files from here on, if the system does.
inline bool allowOpenFiles(rlim_t count) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max < count) return false;
  limit.rlim_cur = std::max(limit.rlim_cur, count);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// Ends the process when a test waits for what never comes, so that it fails instead of hanging. No
// test passes or fails by how long it takes.
class Watchdog {
 public:
  Watchdog() { alarm(kSeconds); }
  ~Watchdog() { alarm(0); }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  static constexpr unsigned kSeconds = 120;
};

}  // namespace quen::tests
