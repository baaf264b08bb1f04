#include "tests/soak/worker.h"

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "tests/differential/odd_mount.h"

namespace fs = std::filesystem;

namespace quen::soak {

using namespace differential;

namespace {

// Each thread repeats one of its first programs every so often, which has to end as it did before.
constexpr std::uint64_t kRepeatEvery = 10;
constexpr std::uint64_t kFirstRepeated = 2;
constexpr std::uint64_t kRepeated = 8;

// A program hangs if it makes no call and no request for so long, or so many requests.
constexpr std::chrono::minutes kHangs{5};
constexpr std::uint64_t kMostRequests = 5'000'000;

fs::path newFolder() {
  std::string name = fs::path(fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") / "quen-io-soak-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  return name;
}

fs::path made(const fs::path& folder) {
  fs::create_directory(folder);
  return folder;
}

std::string faultyOperations(std::uint64_t during) {
  std::string names;
  for (std::size_t i = 0; i < kOperations; ++i) {
    if ((during >> i) % 2 != 0) names += "  faulty: " + std::string(kOperationNames[i]) + '\n';
  }
  return names;
}

}  // namespace

Mount::Mount() : scratch_(newFolder()), plan_(mapPlan((scratch_ / "plan").c_str())) {
  fs::create_directory(scratch_ / "files");
  fs::create_directory(root());
  server_ = mountWith({QUEN_IO_FAULT_FS, scratch_ / "files", root(), scratch_ / "plan"});
}

Mount::~Mount() {
  end();
  std::error_code ignored;
  fs::remove_all(scratch_, ignored);
}

// By itself the server would wait for descriptors that a faulty form leaves open.
void Mount::end() const {
  unmountOddFs(root());
  if (server_ > 0) killServer(server_);
}

Worker::Worker(std::size_t number, Mount& mount, Tally& tally)
    : number_(number),
      lane_(mount.plan().lanes.at(number)),
      folder_(mount.root() / std::to_string(number)),
      tally_(tally),
      judge_(Judge::defaultModule(), made(folder_), surroundings(0), surroundings(1)) {
  judge_.observe([this](const EntryPoint& entry, const Outcome& plain, const Outcome& module) {
    observe(entry, plain, module);
  });
}

void Worker::closeFirstHandle() {
  judge_.compare("quen_io_FileWriter__openPath", {text("@/first"), number(0)});
  judge_.compare("quen_io_FileWriter__closeHandle", {number(1)});
}

std::string Worker::run(std::uint64_t seed, const std::vector<std::uint8_t>& program) {
  firstRequest_ = lane_.requests.load();
  ++lane_.run;
  lane_.seed = drifts_ ? mixed(seed + lane_.run) : seed;
  program_ = seed;
  digest_ = 0;
  std::string difference = runProgram(judge_, program.data(), program.size());
  if (difference.empty()) difference = openDescriptors();
  ++tally_.programs;
  return difference;
}

void Worker::work(std::uint64_t firstSeed, std::uint64_t most, const std::atomic<bool>& stopped) {
  std::vector<std::size_t> digests;  // of the first programs
  std::uint64_t next = 0;
  for (std::uint64_t i = 0; i < most && !stopped; ++i) {
    const bool again = i % kRepeatEvery == kFirstRepeated;
    const std::uint64_t index = again ? i / kRepeatEvery % digests.size() : next++;
    const std::uint64_t seed = mixed(firstSeed + (number_ << 40) + index);
    std::string difference = run(seed);
    if (again) {
      ++tally_.repeated;
      if (difference.empty() && digest_ != digests.at(index)) {
        difference = "The program ended differently when it was repeated.\n";
      }
    } else if (index < kRepeated) {
      digests.push_back(digest_);
    }
    if (!difference.empty()) report(seed, difference);
  }
  idle_ = true;
}

void Worker::report(std::uint64_t seed, const std::string& difference) {
  const std::lock_guard lock(tally_.output);
  ++tally_.failures;
  std::cerr << "program " << seed << " on thread " << number_ << ":\n"
            << difference << "repeat it with: tests/soak/run --repeat " << seed
            << "\nshrink it with: tests/soak/run --shrink " << seed << std::endl;
}

bool Worker::hangs() {
  if (idle_) return false;
  const std::uint64_t steps = calls_ + lane_.requests;
  if (steps != steps_) {
    steps_ = steps;
    progressed_ = Clock::now();
  }
  return Clock::now() - progressed_ > kHangs || lane_.requests - firstRequest_ > kMostRequests;
}

Surroundings Worker::surroundings(std::size_t form) {
  return {.otherThreads = true,
          .before =
              [this, form] {
                lane_.met.at(form).during = 0;
                lane_.faulty = true;
              },
          .after = [this] { lane_.faulty = false; }};
}

void Worker::observe(const EntryPoint& entry, const Outcome& plain, const Outcome& module) {
  CountsOfEntry& counts =
      tally_.entries.at(static_cast<std::size_t>(&entry - entryPoints().data()));
  ++counts.calls;
  ++tally_.calls;
  ++calls_;
  const std::uint64_t one = lane_.met[0].during;
  const std::uint64_t other = lane_.met[1].during;
  if ((one | other) != 0) ++counts.faulty;
  if (one != other) ++counts.otherFaults;
  if (!module.exception.empty()) ++tally_.raised;
  if (!module.thrown.empty()) ++tally_.thrown;
  if (tells_) {
    std::cerr << entry.name << '\n' << describe(module) << faultyOperations(other) << '\n';
  }
  addToDigest(plain.result);
  addToDigest(module.result);
  addToDigest(module.exception);
  addToDigest(module.thrown);
  addToDigest(module.bytes);
  for (const std::string& call : module.calls) addToDigest(call);
}

void Worker::addToDigest(const std::string& text) {
  digest_ = mixed(digest_ ^ std::hash<std::string>()(text));
}

// Descriptors below the folder of this thread are its own. None is open after a program.
std::string Worker::openDescriptors() const {
  std::string open;
  for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const std::string file = fs::read_symlink(descriptor, closed);
    if (!closed && file.starts_with(folder_.native() + '/')) open += "  " + file + '\n';
  }
  return open.empty() ? "" : "descriptors stay open:\n" + open;
}

}  // namespace quen::soak
