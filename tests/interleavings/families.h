// The programs that are explored: all combinations of rows of calls, up to the order of the
// threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/interleavings/writer_program.h"

namespace quen::interleavings {

struct Family {
  std::string name;
  Disk disk;
  std::vector<Rows> programs;
};

// With the given number of threads, each of which makes at least one call and at most so many.
std::vector<Family> families(int threads, int calls);

struct Total {
  std::uint64_t programs = 0;
  std::uint64_t schedules = 0;
  std::uint64_t abandoned = 0;
  std::uint64_t operations = 0;  // of the longest schedule
  std::string failure;           // with its program
};

// Explores one of `step` programs, from the one at `first` on.
Total explore(const Family& family, std::size_t first = 0, std::size_t step = 1);

}  // namespace quen::interleavings
