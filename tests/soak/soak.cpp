// All entry points at once under random faults, with the plain form as the judge:
//
//   quen_io_soak SECONDS [SEED]         random programs on 16 threads; CSV on standard output
//   quen_io_soak --programs COUNT SEED  so many programs of each thread, whatever time they take
//   quen_io_soak --drifting COUNT SEED  the same, but a repeated program meets other faults,
//                                       which has to be noticed
//   quen_io_soak --repeat PROGRAM       one program alone
//   quen_io_soak --shrink PROGRAM       the same, then ever smaller parts of it
//
// Exits 77 if FUSE file systems cannot be mounted, 1 after a difference, or if memory, descriptors,
// threads or results are not flat, or if an entry point or a kind of fault did not occur.
// QUEN_IO_MODULE names another build of the module.

#include <malloc.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "runtime/small/host.h"
#include "tests/differential/program.h"
#include "tests/soak/faults.h"
#include "tests/soak/worker.h"

namespace fs = std::filesystem;
using namespace quen::soak;
using namespace quen::differential;

namespace {

constexpr int kSkipped = 77;

// Growth of a mean from the second tenth of the time to the last that counts as a leak. While
// caches still fill, memory may grow by more.
constexpr double kMostGrownKib = 8 * 1024;
constexpr double kMostGrownDescriptors = 16;
constexpr double kSecondsToFill = 300;
constexpr double kMostFilledKib = 32 * 1024;

struct Sample {
  double second;
  std::uint64_t programs;
  std::uint64_t calls;
  std::uint64_t raised;
  std::int64_t residentKib;
  std::int64_t serverKib;
  std::int64_t descriptors;
  std::int64_t serverDescriptors;
  std::int64_t threads;
  std::array<std::uint64_t, kKinds> faults;
};

std::int64_t residentKib(const fs::path& process) {
  std::int64_t pages = 0;
  std::ifstream(process / "statm") >> pages >> pages;
  return pages * sysconf(_SC_PAGESIZE) / 1024;
}

std::int64_t entriesOf(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

std::uint64_t faultsOf(const Plan& plan, std::size_t operation, std::size_t kind) {
  std::uint64_t sum = 0;
  for (const Lane& lane : plan.lanes) {
    for (const Met& met : lane.met) sum += met.faults.at(operation).at(kind);
  }
  return sum;
}

std::uint64_t faultsOf(const Plan& plan, std::size_t kind) {
  std::uint64_t sum = 0;
  for (std::size_t each = 0; each < kOperations; ++each) sum += faultsOf(plan, each, kind);
  return sum;
}

// What is to be flat, and how much it may grow.
struct Flat {
  std::string_view name;
  std::int64_t Sample::*value;
  double most;
  double mostOfAShortRun;
};

constexpr std::array kFlat = {
    Flat{"resident KiB", &Sample::residentKib, kMostGrownKib, kMostFilledKib},
    Flat{"KiB of the file system", &Sample::serverKib, kMostGrownKib, kMostFilledKib},
    Flat{"descriptors", &Sample::descriptors, kMostGrownDescriptors, kMostGrownDescriptors},
    Flat{"descriptors of the file system", &Sample::serverDescriptors, kMostGrownDescriptors,
         kMostGrownDescriptors},
};

struct Limit {
  double seconds = std::numeric_limits<double>::infinity();
  std::uint64_t programs = std::numeric_limits<std::uint64_t>::max();  // of each thread
};

class Soak {
 public:
  Soak(Mount& mount, std::uint64_t seed) : mount_(mount), seed_(seed) {
    for (std::size_t i = 0; i < kLanes; ++i) {
      workers_.push_back(std::make_unique<Worker>(i, mount, tally_));
      if (i == 0) workers_[0]->closeFirstHandle();
    }
  }

  Worker& firstWorker() { return *workers_[0]; }

  void drift() {
    for (const auto& worker : workers_) worker->drift();
  }

  bool run(const Limit& limit) {
    const std::int64_t before = entriesOf("/proc/self/fd");
    const auto begin = Clock::now();
    {
      std::vector<std::jthread> threads;
      for (const auto& worker : workers_) {
        threads.emplace_back([&] {
          // Gives the thread a working directory of its own.
          if (unshare(CLONE_FS) != 0) std::abort();
          worker->work(seed_, limit.programs, stopped_);
          stopped_.wait(false);  // so that the number of threads is the same until the end
        });
      }
      sampleUntil(begin, limit.seconds);
      stopped_ = true;
      while (!isIdle()) {
        endIfOneHangs();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
      stopped_.notify_all();
    }
    const std::int64_t after = entriesOf("/proc/self/fd");
    require(before == after, std::to_string(before) + " descriptors before the run, " +
                                 std::to_string(after) + " after it");
    require(quen::small::liveObjects() == 0,
            std::to_string(quen::small::liveObjects()) + " objects of the runtime left");
    requireFlat();
    requireAll();
    require(tally_.repeated > 0, "no program was repeated");
    summarize(Clock::now() - begin);
    return tally_.failures == 0;
  }

 private:
  bool isIdle() const {
    return std::all_of(workers_.begin(), workers_.end(),
                       [](const auto& worker) { return worker->isIdle(); });
  }

  void sampleUntil(Clock::time_point begin, double seconds) {
    const double interval = std::isinf(seconds) ? 0.1 : std::clamp(seconds / 40, 0.1, 5.0);
    std::cout << "second,programs,calls,raised,resident KiB,file system KiB,descriptors,"
                 "file system descriptors,threads";
    for (const std::string_view kind : kKindNames) std::cout << ',' << kind;
    std::cout << std::endl;
    bool idle = false;
    for (double second = interval; second <= seconds + interval / 2 && !idle; second += interval) {
      std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>(second)));
      quen::small::forgetRecordedKinds();
      idle = isIdle();
      if (idle && !samples_.empty()) break;  // whose threads have ended
      samples_.push_back(sample(second));
      print(samples_.back());
      endIfOneHangs();
    }
  }

  Sample sample(double second) const {
    const fs::path server = fs::path("/proc") / std::to_string(mount_.server());
    Sample now{second,
               tally_.programs,
               tally_.calls,
               tally_.raised,
               residentKib("/proc/self"),
               residentKib(server),
               entriesOf("/proc/self/fd"),
               entriesOf(server / "fd"),
               entriesOf("/proc/self/task"),
               {}};
    for (std::size_t kind = 0; kind < kKinds; ++kind) {
      now.faults.at(kind) = faultsOf(mount_.plan(), kind);
    }
    return now;
  }

  static void print(const Sample& sample) {
    std::cout << sample.second << ',' << sample.programs << ',' << sample.calls << ','
              << sample.raised << ',' << sample.residentKib << ',' << sample.serverKib << ','
              << sample.descriptors << ',' << sample.serverDescriptors << ',' << sample.threads;
    for (const std::uint64_t faults : sample.faults) std::cout << ',' << faults;
    std::cout << std::endl;
  }

  void endIfOneHangs() {
    for (std::size_t i = 0; i < workers_.size(); ++i) {
      if (!workers_[i]->hangs()) continue;
      workers_[i]->report(workers_[i]->program(), "It does not end.\n");
      mount_.end();
      _exit(1);
    }
  }

  void require(bool holds, const std::string& otherwise) {
    if (holds) return;
    ++tally_.failures;
    std::cerr << otherwise << std::endl;
  }

  // The mean of a value over the given tenth of the samples, counted from 0.
  double mean(std::size_t tenth, const std::function<double(const Sample&)>& value) const {
    const std::size_t count = std::max<std::size_t>(samples_.size() / 10, 1);
    const std::size_t first = std::min(tenth * count, samples_.size() - count);
    double sum = 0;
    for (std::size_t i = first; i < first + count; ++i) sum += value(samples_[i]);
    return sum / static_cast<double>(count);
  }

  void requireFlat() {
    for (const Flat& flat : kFlat) {
      const auto value = [&](const Sample& sample) {
        return static_cast<double>(sample.*flat.value);
      };
      const double early = mean(1, value);
      const double late = mean(9, value);
      std::cerr << flat.name << ": " << early << " in the second tenth of the time, " << late
                << " in the last\n";
      const bool isShort = samples_.back().second < kSecondsToFill;
      const double most = isShort ? flat.mostOfAShortRun : flat.most;
      require(late - early <= most,
              std::string(flat.name) + " grew by more than " + std::to_string(most));
    }
    const std::int64_t threads = samples_.front().threads;
    require(std::all_of(samples_.begin(), samples_.end(),
                        [&](const Sample& each) { return each.threads == threads; }),
            "the number of threads changed");
  }

  // Every entry point was called, and every kind of fault and every faulty operation was met.
  void requireAll() {
    for (std::size_t i = 0; i < entryPoints().size(); ++i) {
      require(tally_.entries[i].calls > 0, std::string(entryPoints()[i].name) + " was not called");
    }
    const Plan& plan = mount_.plan();
    for (std::size_t kind = 0; kind < kKinds; ++kind) {
      require(faultsOf(plan, kind) > 0, "none of these faults: " + std::string(kKindNames[kind]));
    }
    for (std::size_t operation = 0; operation < kOperations; ++operation) {
      const auto error = static_cast<std::size_t>(Kind::kError);
      require(faultsOf(plan, operation, error) > 0,
              "no error of " + std::string(kOperationNames[operation]));
    }
  }

  std::uint64_t requests() const {
    std::uint64_t sum = 0;
    for (const Lane& lane : mount_.plan().lanes) sum += lane.requests;
    return sum;
  }

  void summarize(std::chrono::duration<double> time) const {
    std::cerr << tally_.programs << " programs, " << tally_.repeated << " of them repeated ones, "
              << tally_.calls << " calls of each form in " << static_cast<int>(time.count())
              << " s, " << requests() << " requests to the file system, from seed " << seed_ << '\n'
              << tally_.raised << " calls raised an exception, " << tally_.thrown
              << " ended with std::bad_alloc of the runtime\n";
    std::cerr << "faults met, by operation:\n";
    for (std::size_t operation = 0; operation < kOperations; ++operation) {
      std::cerr << "  " << kOperationNames.at(operation) << ':';
      for (std::size_t kind = 0; kind < kKinds; ++kind) {
        const std::uint64_t count = faultsOf(mount_.plan(), operation, kind);
        if (count > 0) std::cerr << ' ' << count << ' ' << kKindNames.at(kind);
      }
      std::cerr << '\n';
    }
    std::uint64_t waiting = 0;
    std::uint64_t leftOut = 0;
    for (const auto& worker : workers_) {
      waiting += worker->met(Allowed::kTextsWait);
      leftOut += worker->leftOut();
    }
    std::cerr << "allowed, " << kAllowedDifferences[0].name << ": " << waiting << " times\n"
              << "not decided: " << leftOut << " whole-text reads of large files were left out\n";
    printEntries("calls in which the forms met a fault, delays left out:",
                 [](const CountsOfEntry& counts) { return counts.faulty.load(); });
    printEntries("of these, calls in which the forms met faults of different operations:",
                 [](const CountsOfEntry& counts) { return counts.otherFaults.load(); });
    std::cerr << (tally_.failures == 0 ? "no difference" : "FAILED") << ", " << tally_.failures
              << " failures" << std::endl;
  }

  // Names the entry points of which the number is not 0.
  void printEntries(std::string_view title,
                    const std::function<std::uint64_t(const CountsOfEntry&)>& number) const {
    std::cerr << title;
    for (std::size_t i = 0; i < entryPoints().size(); ++i) {
      const std::uint64_t count = number(tally_.entries[i]);
      if (count == 0) continue;
      std::cerr << "\n  " << entryPoints()[i].name << ": " << count;
    }
    std::cerr << '\n';
  }

  Mount& mount_;
  std::uint64_t seed_;
  Tally tally_;
  std::vector<std::unique_ptr<Worker>> workers_;
  std::vector<Sample> samples_;
  std::atomic<bool> stopped_{false};
};

// Leaves out ever smaller parts of the program as long as the forms still differ.
std::vector<std::uint8_t> shrunk(Worker& worker, std::uint64_t seed, int& runs) {
  std::vector<std::uint8_t> program = randomProgram(seed);
  for (std::size_t part = program.size() / 2; part > 0; part /= 2) {
    for (std::size_t at = 0; at + part <= program.size();) {
      std::vector<std::uint8_t> smaller = program;
      const auto first = smaller.begin() + static_cast<std::ptrdiff_t>(at);
      smaller.erase(first, first + static_cast<std::ptrdiff_t>(part));
      ++runs;
      if (worker.run(seed, smaller).empty()) {
        at += part;
      } else {
        program = smaller;
      }
    }
  }
  return program;
}

bool repeat(Worker& worker, std::uint64_t seed, bool shrinks) {
  std::string difference = worker.run(seed);
  if (difference.empty()) {
    std::cerr << "Alone, the program ends the same in both forms. It takes the other threads: "
                 "repeat the whole run with its seed.\n";
    return true;
  }
  if (shrinks) {
    int runs = 0;
    const std::vector<std::uint8_t> program = shrunk(worker, seed, runs);
    worker.tellCalls();
    difference = worker.run(seed, program);
    std::cerr << "shrunk from " << randomProgram(seed).size() << " bytes to " << program.size()
              << " in " << runs << " runs\n";
  }
  std::cerr << difference;
  return false;
}

bool usage() {
  std::cerr
      << "usage: quen_io_soak SECONDS [SEED] | --programs COUNT SEED | --drifting COUNT SEED |\n"
         "       --repeat PROGRAM | --shrink PROGRAM\n";
  return false;
}

std::uint64_t numberOf(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

bool soak(Mount& mount, const std::string& command, const std::vector<std::string>& arguments) {
  if (command == "--programs" || command == "--drifting") {
    if (arguments.size() != 2) return usage();
    Soak soak(mount, numberOf(arguments[1]));
    if (command == "--drifting") soak.drift();
    return soak.run({.programs = numberOf(arguments[0])});
  }
  const std::uint64_t number = arguments.empty() ? std::random_device()() : numberOf(arguments[0]);
  Soak soak(mount, number);
  if (!command.starts_with("--")) return soak.run({.seconds = std::atof(command.c_str())});
  if (arguments.empty()) return usage();
  return repeat(soak.firstWorker(), number, command == "--shrink");
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return usage() ? 0 : 2;
  // Otherwise glibc raises both thresholds when a large block is freed for the first time, and
  // keeps more freed memory from then on (mallopt(3)), which would look like a leak.
  constexpr int kThreshold = 128 * 1024;
  mallopt(M_MMAP_THRESHOLD, kThreshold);
  mallopt(M_TRIM_THRESHOLD, kThreshold);
  Mount mount;
  if (!mount.isMounted()) {
    std::cout << "skipped: FUSE file systems cannot be mounted here (/dev/fuse, fusermount3)\n";
    return kSkipped;
  }
  return soak(mount, arguments[1], {arguments + 2, arguments + count}) ? 0 : 1;
}
