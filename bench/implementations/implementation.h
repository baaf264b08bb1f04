// Shared by the implementations in C++: a process that answers requests, one per line, until end of
// file.
//
//   request: WORKLOAD ITERATIONS ARGUMENT...   separated by tabs
//   answer:  NANOSECONDS CHECKSUM ALLOCATIONS WAITED  for all iterations together, or: skip REASON
//
// The workload "on_threads", whose first arguments are a number of threads and another workload, is
// that workload on so many threads at once, with the iterations on each.
//
// WAITED is the time that all threads waited for locks, in nanoseconds, and 0 unless
// bench_lock_waits is preloaded.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

// How long the threads of the process have waited for locks. Defined by bench_lock_waits, if that
// is preloaded.
extern "C" [[gnu::weak, gnu::visibility("default")]] std::uint64_t bench_nanosecondsWaited();

namespace quen::bench {

using Arguments = std::vector<std::string>;

// The number of calls of operator new in this process.
std::uint64_t allocations();

// The measurement of one request: the total time between calls of start and stop.
class Measurement {
 public:
  void start();
  void stop();

  // Adds a result to the checksum, so that the compiler cannot remove its computation.
  void use(std::uint64_t result) { checksum_ += result; }

  std::string answer() const;

 private:
  std::chrono::steady_clock::time_point started_;
  std::chrono::nanoseconds elapsed_{0};
  std::uint64_t allocationsBefore_ = 0;
  std::uint64_t allocations_ = 0;
  std::uint64_t checksum_ = 0;
  std::uint64_t waitedBefore_ = 0;
  std::uint64_t waited_ = 0;
};

// Does the work the given number of times and measures it. Throws a std::exception on failure.
using Workload =
    std::function<void(Measurement& measurement, int iterations, const Arguments& arguments)>;

// The work of one iteration, which starts and stops the clock itself, so that it can prepare and
// clean up. Too expensive for work of some nanoseconds.
using Once = std::function<void(Measurement& measurement, const Arguments& arguments)>;
Workload repeated(const Once& once);

// Answers requests until end of file, and skips unknown workloads.
int serve(const std::map<std::string, Workload>& workloads);

// The contents of a file, and its lines, read once and kept.
const std::string& textOf(const std::string& file);
const std::vector<std::string>& linesOf(const std::string& file);

// Runs the work on this many threads at the same time, numbered from 0.
void onThreads(int threads, const std::function<void(int)>& work);

// A second thread that stays alive while a single one works: in a process with one thread,
// libstdc++ counts references of shared_ptr without atomic operations (__gthread_active_p,
// __libc_single_threaded), and glibc takes locks without them.
class SecondThread {
 public:
  SecondThread();
  ~SecondThread();
  SecondThread(const SecondThread&) = delete;
  SecondThread& operator=(const SecondThread&) = delete;

 private:
  std::atomic<bool> released_{false};
  std::jthread thread_;
};

// Makes a folder with this many empty files, 200 in each folder below it.
void makeTree(const std::string& folder, int files);

}  // namespace quen::bench
