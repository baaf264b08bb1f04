// Texts that end right before a guard page. Private to the kit.
#pragma once

#include <cstddef>
#include <string_view>

namespace quen::conformance {

// Holds one text at a time, and one object may exist at a time. A read beyond the NUL of the text
// is recorded and then allowed; any other SIGSEGV goes to the previous handler.
class GuardedTexts {
 public:
  static constexpr std::size_t kMostBytes = 8192;

  GuardedTexts();
  ~GuardedTexts();
  GuardedTexts(const GuardedTexts&) = delete;
  GuardedTexts& operator=(const GuardedTexts&) = delete;

  // Copies the text to the end of the readable memory, replacing the previous one.
  char* place(std::string_view text);

  // Whether memory beyond the current text was accessed.
  static bool wasReadBehind();

 private:
  std::size_t pageSize_;
  std::size_t size_;
  char* start_;
  char* guard_;
};

}  // namespace quen::conformance
