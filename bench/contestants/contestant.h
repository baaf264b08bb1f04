// What every contestant written in C++ shares: it answers requests, one line each, until its input
// ends.
//
//   request: WORKLOAD ITERATIONS ARGUMENT...   separated by tabs
//   answer:  NANOSECONDS CHECKSUM ALLOCATIONS  for all iterations together, or: skip REASON
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quen::bench {

using Arguments = std::vector<std::string>;

// How many times this process has called operator new.
std::uint64_t allocations();

// What one request measures. Only what happens between start and stop counts, added up.
class Measurement {
 public:
  void start();
  void stop();

  // Adds a result to the checksum, for which it has to be computed.
  void use(std::uint64_t result) { checksum_ += result; }

  std::string answer() const;

 private:
  std::chrono::steady_clock::time_point started_;
  std::chrono::nanoseconds elapsed_{0};
  std::uint64_t allocationsBefore_ = 0;
  std::uint64_t allocations_ = 0;
  std::uint64_t checksum_ = 0;
};

// Does the work so many times, with the clock where it belongs. Throws std::exception for whatever
// fails.
using Workload =
    std::function<void(Measurement& measurement, int iterations, const Arguments& arguments)>;

// The work of one iteration. Its clock is started and stopped for each, so that it can prepare and
// clean up; that is too much for what takes only nanoseconds.
using Once = std::function<void(Measurement& measurement, const Arguments& arguments)>;
Workload repeated(const Once& once);

// Answers until the input ends. A workload that is not among them is skipped.
int serve(const std::map<std::string, Workload>& workloads);

// The contents of a file, and its lines, read once and kept.
const std::string& textOf(const std::string& file);
const std::vector<std::string>& linesOf(const std::string& file);

// Runs the work on this many threads at the same time, numbered from 0.
void onThreads(int threads, const std::function<void(int)>& work);

// Makes a folder with this many empty files, 200 in each folder below it.
void makeTree(const std::string& folder, int files);

}  // namespace quen::bench
