// What a test changes in the whole process, or asks about it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <locale>
#include <string>

namespace quen::tests {

// Lets the global locale write 12345 as "12,345". For a child process.
inline void groupDigits() {
  class Grouping : public std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
}

// How many descriptors are open.
inline std::ptrdiff_t openFiles() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

}  // namespace quen::tests
