#include "bench/implementations/implementation.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::atomic<std::uint64_t> gAllocations{0};

}  // namespace

void* operator new(std::size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace quen::bench {

namespace {

std::uint64_t nanosecondsWaited() {
  return bench_nanosecondsWaited == nullptr ? 0 : bench_nanosecondsWaited();
}

}  // namespace

std::uint64_t allocations() { return gAllocations.load(std::memory_order_relaxed); }

void Measurement::start() {
  allocationsBefore_ = bench::allocations();
  waitedBefore_ = nanosecondsWaited();
  started_ = std::chrono::steady_clock::now();
}

void Measurement::stop() {
  elapsed_ += std::chrono::steady_clock::now() - started_;
  allocations_ += bench::allocations() - allocationsBefore_;
  waited_ += nanosecondsWaited() - waitedBefore_;
}

std::string Measurement::answer() const {
  std::ostringstream line;
  line << elapsed_.count() << '\t' << checksum_ << '\t' << allocations_ << '\t' << waited_;
  return line.str();
}

namespace {

Arguments fieldsOf(const std::string& line) {
  Arguments fields;
  std::istringstream rest(line);
  for (std::string field; std::getline(rest, field, '\t');) fields.push_back(field);
  return fields;
}

// What the workload measures on each thread is not used: the clock runs from the start of the first
// thread to the end of the last.
void measureOnThreads(const std::map<std::string, Workload>& workloads, Measurement& measurement,
                      int iterations, const Arguments& arguments) {
  const Workload& workload = workloads.at(arguments.at(1));
  const Arguments own(arguments.begin() + 2, arguments.end());
  measurement.start();
  onThreads(std::stoi(arguments[0]), [&](int) {
    Measurement unused;
    workload(unused, iterations, own);
  });
  measurement.stop();
}

std::string answerTo(Arguments request, const std::map<std::string, Workload>& workloads) {
  const bool onThreads = request.at(0) == "on_threads";
  const auto workload = workloads.find(request.at(onThreads ? 3 : 0));
  if (workload == workloads.end()) return "skip\tnothing of the kind";

  const int iterations = std::stoi(request.at(1));
  request.erase(request.begin(), request.begin() + 2);
  Measurement measurement;
  if (onThreads) {
    measureOnThreads(workloads, measurement, iterations, request);
  } else {
    workload->second(measurement, iterations, request);
  }
  return measurement.answer();
}

}  // namespace

Workload repeated(const Once& once) {
  return [once](Measurement& measurement, int iterations, const Arguments& arguments) {
    for (int i = 0; i < iterations; ++i) once(measurement, arguments);
  };
}

int serve(const std::map<std::string, Workload>& workloads) {
  for (std::string line; std::getline(std::cin, line);) {
    try {
      std::cout << answerTo(fieldsOf(line), workloads) << std::endl;
    } catch (const std::exception& failure) {
      std::cout << "skip\t" << failure.what() << std::endl;
    }
  }
  return 0;
}

namespace {

// malloc maps memory of its own for a block of this size (mallopt(3), M_MMAP_THRESHOLD). So every
// text begins 16 bytes behind the start of a page, whatever the process allocated before: loads
// that cross a cache line are slower, and their number depends on where the text begins.
constexpr std::size_t kMappedSize = 64 << 20;

}  // namespace

const std::string& textOf(const std::string& file) {
  static std::mutex mutex;
  static std::map<std::string, std::string> texts;
  const std::lock_guard lock(mutex);
  const auto [entry, isNew] = texts.try_emplace(file);
  if (isNew) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + file);
    entry->second.reserve(kMappedSize);
    entry->second.assign(std::istreambuf_iterator<char>(stream), {});
  }
  return entry->second;
}

const std::vector<std::string>& linesOf(const std::string& file) {
  static std::mutex mutex;
  static std::map<std::string, std::vector<std::string>> lines;
  const std::lock_guard lock(mutex);
  const auto [entry, isNew] = lines.try_emplace(file);
  if (isNew) {
    std::istringstream text(textOf(file));
    for (std::string line; std::getline(text, line);) entry->second.push_back(line);
  }
  return entry->second;
}

void onThreads(int threads, const std::function<void(int)>& work) {
  std::vector<std::jthread> others;
  for (int number = 1; number < threads; ++number) others.emplace_back(work, number);
  work(0);
}

SecondThread::SecondThread() : thread_([this] { released_.wait(false); }) {}

SecondThread::~SecondThread() {
  released_ = true;
  released_.notify_all();
}

void makeTree(const std::string& folder, int files) {
  for (int file = 0; file < files; ++file) {
    const fs::path below = fs::path(folder) / std::to_string(file / 200);
    if (file % 200 == 0) fs::create_directories(below);
    std::ofstream(below / (std::to_string(file) + ".txt"));
  }
}

}  // namespace quen::bench
