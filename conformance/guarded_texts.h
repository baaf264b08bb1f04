// Texts that end right before memory that may not be touched. Private to the kit.
#pragma once

#include <cstddef>
#include <string_view>

namespace quen::conformance {

// One at a time. Whoever reads on behind a text's NUL is noticed and let through; every other fault
// meets what handled it before.
class GuardedTexts {
 public:
  static constexpr std::size_t kMostBytes = 8192;

  GuardedTexts();
  ~GuardedTexts();
  GuardedTexts(const GuardedTexts&) = delete;
  GuardedTexts& operator=(const GuardedTexts&) = delete;

  // The text at the very end of what may be read. It takes the place of the one before.
  char* place(std::string_view text);

  // Whether memory behind the present text was touched.
  static bool wasReadBehind();

 private:
  std::size_t pageSize_;
  std::size_t size_;
  char* start_;
  char* guard_;
};

}  // namespace quen::conformance
