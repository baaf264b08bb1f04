// State of the whole process that a test changes or inspects.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <locale>
#include <string>
#include <system_error>

namespace quen::tests {

// Makes the global locale format 12345 as "12,345". Use it in a child process.
inline void groupDigits() {
  class Grouping : public std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
}

// The number of open descriptors.
inline std::ptrdiff_t openFiles() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

// How many of the descriptors of this file a program would inherit that is executed now. Fails the
// test when the file is not open at all.
inline int descriptorsKeptOnExec(const std::filesystem::path& file) {
  int open = 0;
  int kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) != file) continue;
    const int descriptor = std::stoi(entry.path().filename());
    ++open;
    if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) ++kept;
  }
  EXPECT_GT(open, 0) << file << " is not open";
  return kept;
}

}  // namespace quen::tests
