// Runs random programs until the given number of calls has been compared:
//
//     quen_io_differential CALLS [SEED [PROCESSES]]

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "tests/differential/program.h"

using namespace quen::differential;

namespace {

// Prints the first difference. Returns whether there was none.
bool comparePrograms(std::uint64_t calls, std::uint64_t firstSeed) {
  // Keeps freed memory in the heap: mmap and brk calls took most of the time (mallopt(3)).
  constexpr int kNever = 1 << 30;
  mallopt(M_TRIM_THRESHOLD, kNever);
  mallopt(M_MMAP_THRESHOLD, kNever);

  Judge judge;
  std::uint64_t seed = firstSeed;
  for (; judge.comparedCalls() < calls; ++seed) {
    const std::vector<std::uint8_t> program = randomProgram(seed);
    const std::string difference = runProgram(judge, program.data(), program.size());
    if (difference.empty()) continue;
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    std::fwrite(difference.data(), 1, difference.size(), stdout);
    return false;
  }
  std::printf("%llu calls in %llu programs compared, from seed %llu on; allowed, %s: %llu times\n",
              static_cast<unsigned long long>(judge.comparedCalls()),
              static_cast<unsigned long long>(seed - firstSeed),
              static_cast<unsigned long long>(firstSeed),
              std::string(kAllowedDifferences[0].name).c_str(),
              static_cast<unsigned long long>(judge.met(Allowed::kTextsWait)));
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    std::fprintf(stderr, "usage: %s CALLS [SEED [PROCESSES]]\n", arguments[0]);
    return 2;
  }
  const auto argument = [&](int number, std::uint64_t otherwise) {
    return count > number ? std::strtoull(arguments[number], nullptr, 10) : otherwise;
  };
  const std::uint64_t calls = argument(1, 0);
  const std::uint64_t seed = argument(2, std::random_device()());
  const std::uint64_t processes = argument(3, 1);
  const auto started = std::chrono::steady_clock::now();

  // Each process uses consecutive seeds in a range of its own.
  for (std::uint64_t i = 0; i < processes; ++i) {
    if (fork() != 0) continue;
    const bool same = comparePrograms((calls + processes - 1) / processes, seed + (i << 32));
    return same ? 0 : 1;
  }
  bool allSame = true;
  for (int status = 0; wait(&status) > 0;) allSame = allSame && status == 0;
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  std::printf("%s, in %.0f s\n", allSame ? "no difference" : "THE FORMS DIFFER", seconds.count());
  return allSame ? 0 : 1;
}
