// Shared by the fuzz targets: decoding of the input, and assertions that abort the process so that
// libFuzzer records the input as a crash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/small/host.h"

namespace quen::fuzz {

// Aborts with the actual and the expected value unless the condition holds.
inline void require(bool holds, std::string_view what, const std::string& got = "",
                    const std::string& wanted = "") {
  if (holds) return;
  std::fprintf(stderr, "%.*s: got <%s>, wanted <%s>\n", static_cast<int>(what.size()), what.data(),
               got.c_str(), wanted.c_str());
  std::abort();
}

inline void requireSame(std::string_view what, const std::string& got, const std::string& wanted) {
  require(got == wanted, what, got, wanted);
}

// "IOException: Cannot open file"; "" when nothing was raised.
inline std::string raised() {
  const std::optional<small::Exception> exception = small::takeException();
  return exception ? exception->className + ": " + exception->message : "";
}

// Consumes the input from the front; returns zeros and empty texts at its end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }

  std::uint8_t byte() {
    const auto value = static_cast<std::uint8_t>(rest_.empty() ? 0 : rest_.front());
    rest_.remove_prefix(rest_.empty() ? 0 : 1);
    return value;
  }

  // Up to the next NUL, so that it can be passed as a C string.
  std::string text() {
    const std::size_t end = rest_.find('\0');
    std::string text(rest_.substr(0, end));
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return text;
  }

  std::string rest() { return std::string(rest_); }

 private:
  std::string_view rest_;
};

}  // namespace quen::fuzz
