// Random input for tests: a seed that can be reproduced, and fewer inputs under sanitizers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

#include "tests/support/sanitized.h"

namespace quen::tests {

// Sanitizers slow each call down, so that a tenth of the inputs takes about as long.
constexpr std::size_t generatedInputs(std::size_t count) { return kSanitized ? count / 10 : count; }

// Every run has another seed. A failing test prints its seed, and QUEN_IO_SEED=<seed> reproduces
// the sequence.
class Generator {
 public:
  std::string describe() const { return "QUEN_IO_SEED=" + std::to_string(seed_); }

  // A number from 0 to `count` - 1.
  std::size_t below(std::size_t count) { return random_() % count; }
  bool coin() { return below(2) == 0; }

  // Up to `most` characters, each drawn from the alphabet.
  template <typename Alphabet>
  std::string text(const Alphabet& alphabet, std::size_t most) {
    std::string text(below(most + 1), '\0');
    for (char& character : text) character = alphabet[below(alphabet.size())];
    return text;
  }

 private:
  static std::uint64_t chooseSeed() {
    if (const char* given = std::getenv("QUEN_IO_SEED")) return std::strtoull(given, nullptr, 10);
    std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
  }

  std::uint64_t seed_ = chooseSeed();
  std::mt19937_64 random_{seed_};
};

}  // namespace quen::tests
