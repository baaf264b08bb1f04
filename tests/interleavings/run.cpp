// Explores the families of programs with the given bounds:
//
//     quen_io_interleavings THREADS CALLS [EVERY [WORD]]
//                    all programs with so many threads, of at most so many calls each; with EVERY
//                    only one of so many; with a WORD only families whose names contain it, with
//                    -WORD only the others
//     quen_io_interleavings --program ROW...
//                    one program, with each kind of disk; the letters are those of writer_program.h
//     quen_io_interleavings --fails TEXT
//                    small bounds, until the first failure; exit status 0 if there is one, and it
//                    contains the text

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/interleavings/families.h"

using namespace quen::interleavings;

namespace {

using Number = unsigned long long;

// What one process found, in memory that all of them share.
struct Report {
  Number programs, schedules, abandoned, operations;
};

bool print(const std::string& failure) {
  if (!failure.empty()) std::printf("%s\n", failure.c_str());
  static_cast<void>(std::fflush(stdout));
  return failure.empty();
}

// Divides the programs of a family among as many processes as there are processors.
class Processes {
 public:
  Processes()
      : count_(std::max(1U, std::thread::hardware_concurrency())),
        reports_(static_cast<Report*>(mmap(nullptr, count_ * sizeof(Report), PROT_READ | PROT_WRITE,
                                           MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}

  // Prints the failures and the sums. Returns whether there was no failure.
  bool explore(const Family& family, std::size_t every) const {
    const auto started = std::chrono::steady_clock::now();
    static_cast<void>(std::fflush(stdout));
    for (std::size_t process = 0; process < count_; ++process) {
      if (fork() != 0) continue;
      const Total total = quen::interleavings::explore(family, process * every, count_ * every);
      reports_[process] = {total.programs, total.schedules, total.abandoned, total.operations};
      std::_Exit(print(total.failure) ? 0 : 1);
    }
    bool passed = true;
    for (int status = 0; wait(&status) > 0;) passed = passed && status == 0;

    Report sum{};
    for (std::size_t process = 0; process < count_; ++process) {
      sum.programs += reports_[process].programs;
      sum.schedules += reports_[process].schedules;
      sum.abandoned += reports_[process].abandoned;
      sum.operations = std::max(sum.operations, reports_[process].operations);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    std::printf("%-40s %8llu %10llu %10llu %10llu %8.1f\n", family.name.c_str(), sum.programs,
                sum.schedules, sum.abandoned, sum.operations, seconds.count());
    return passed;
  }

 private:
  std::size_t count_;
  Report* reports_;
};

bool isChosen(const std::string& name, const std::string& word) {
  const bool isLeftOut = word.starts_with('-');
  const bool isNamed = name.find(word.substr(isLeftOut ? 1 : 0)) != std::string::npos;
  return isNamed != isLeftOut;
}

bool exploreAll(int threads, int calls, std::size_t every, const std::string& word) {
  const Processes processes;
  std::printf("%-40s %8s %10s %10s %10s %8s\n", "Family", "programs", "schedules", "abandoned",
              "operations", "seconds");
  bool passed = true;
  for (const Family& family : families(threads, calls)) {
    if (!isChosen(family.name, word)) continue;
    passed = processes.explore(family, every) && passed;
  }
  return passed;
}

bool exploreProgram(const Rows& rows) {
  bool passed = true;
  for (const Disk disk : {Disk::kWorks, Disk::kFailsOnce, Disk::kFull}) {
    const Total total = explore({"", disk, {rows}});
    std::printf("%llu schedules of at most %llu operations, %llu abandoned\n",
                static_cast<Number>(total.schedules), static_cast<Number>(total.operations),
                static_cast<Number>(total.abandoned));
    passed = print(total.failure) && passed;
  }
  return passed;
}

bool fails(const std::string& text) {
  for (const int threads : {2, 3}) {
    for (const Family& family : families(threads, threads == 2 ? 2 : 1)) {
      const std::string failure = explore(family).failure;
      if (!print(failure)) return failure.find(text) != std::string::npos;
    }
  }
  return false;
}

}  // namespace

int main(int count, char** arguments) {
  haveSeveralThreads();
  const std::string first = count > 1 ? arguments[1] : "";
  if (first == "--fails" && count > 2) return fails(arguments[2]) ? 0 : 1;
  if (first == "--program" && count > 2 && count - 2 <= kMostThreads) {
    return exploreProgram(Rows(arguments + 2, arguments + count)) ? 0 : 1;
  }
  const int threads = std::atoi(first.c_str());
  const int calls = count > 2 ? std::atoi(arguments[2]) : 0;
  const int every = count > 3 ? std::atoi(arguments[3]) : 1;
  if (threads < 2 || threads > kMostThreads || calls < 1 || calls > kMostCalls || every < 1) {
    std::fprintf(stderr,
                 "usage: %s THREADS CALLS [EVERY [[-]WORD]] | --program ROW... | --fails TEXT\n",
                 arguments[0]);
    return 2;
  }
  const std::string word = count > 4 ? arguments[4] : "";
  return exploreAll(threads, calls, static_cast<std::size_t>(every), word) ? 0 : 1;
}
