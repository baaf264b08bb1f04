// What a soak consists of: a file system with faults, and threads that run programs on it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "tests/differential/program.h"
#include "tests/soak/faults.h"

namespace quen::soak {

using Clock = std::chrono::steady_clock;

// A scratch folder with the file system mounted in it; both are removed at the end.
class Mount {
 public:
  Mount();
  ~Mount();
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;

  bool isMounted() const { return server_ > 0; }
  std::filesystem::path root() const { return scratch_ / "mount"; }
  Plan& plan() const { return plan_; }
  pid_t server() const { return server_; }

  // Unmounts it, also if it is in use, and ends its server.
  void end() const;

 private:
  std::filesystem::path scratch_;
  Plan& plan_;
  pid_t server_ = -1;
};

struct CountsOfEntry {
  std::atomic<std::uint64_t> calls{0};
  std::atomic<std::uint64_t> faulty{0};       // calls in which a form met a fault that is no delay
  std::atomic<std::uint64_t> otherFaults{0};  // in which they met faults of different operations
};

// What all threads share.
struct Tally {
  std::vector<CountsOfEntry> entries =
      std::vector<CountsOfEntry>(differential::entryPoints().size());
  std::atomic<std::uint64_t> programs{0};
  std::atomic<std::uint64_t> repeated{0};
  std::atomic<std::uint64_t> calls{0};
  std::atomic<std::uint64_t> raised{0};
  std::atomic<std::uint64_t> thrown{0};
  std::atomic<std::uint64_t> failures{0};
  std::mutex output;
};

// One of the threads, or the only one.
class Worker {
 public:
  Worker(std::size_t number, Mount& mount, Tally& tally);

  // Handle 1 is closed from then on, so that programs may use it as one that is not open.
  void closeFirstHandle();

  // Runs a program, and says how the forms differ, if they do.
  std::string run(std::uint64_t seed, const std::vector<std::uint8_t>& program);
  std::string run(std::uint64_t seed) { return run(seed, differential::randomProgram(seed)); }

  // Runs programs until there were enough of them, or the time is over.
  void work(std::uint64_t firstSeed, std::uint64_t most, const std::atomic<bool>& stopped);

  // From now on a program does not meet the same faults again.
  void drift() { drifts_ = true; }

  // From now on prints each call with the outcome and the faults of the module.
  void tellCalls() { tells_ = true; }

  void report(std::uint64_t seed, const std::string& difference);

  // Whether the program hangs. To be called every few seconds.
  bool hangs();

  bool isIdle() const { return idle_; }
  std::uint64_t program() const { return program_; }
  std::uint64_t met(differential::Allowed which) const { return judge_.met(which); }
  std::uint64_t leftOut() const { return judge_.leftOut(); }

 private:
  differential::Surroundings surroundings(std::size_t form);
  void observe(const differential::EntryPoint& entry, const differential::Outcome& plain,
               const differential::Outcome& module);
  void addToDigest(const std::string& text);
  std::string openDescriptors() const;

  std::size_t number_;
  Lane& lane_;
  std::filesystem::path folder_;
  Tally& tally_;
  differential::Judge judge_;
  std::size_t digest_ = 0;  // of the outcomes of this program
  bool tells_ = false;
  bool drifts_ = false;
  std::atomic<std::uint64_t> program_{0};
  std::atomic<std::uint64_t> calls_{0};
  std::atomic<std::uint64_t> firstRequest_{0};  // of this program
  std::uint64_t steps_ = 0;                     // when hangs() was called last
  Clock::time_point progressed_ = Clock::now();
  std::atomic<bool> idle_{false};
};

}  // namespace quen::soak
