#include "driver/terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace quen::driver {

namespace {

constexpr std::string_view kPlain = "\x1b[0m";

std::string_view sequenceOf(Style style) {
  switch (style) {
    case Style::kBold: return "\x1b[1m";
    case Style::kDim: return "\x1b[2m";
    case Style::kFailure: break;
  }
  return "\x1b[1;31m";
}

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool isTerminal(const std::ostream& stream) {
  if (&stream == &std::cout) return isatty(STDOUT_FILENO) != 0;
  if (&stream == &std::cerr) return isatty(STDERR_FILENO) != 0;
  return false;
}

}  // namespace

bool takesEscapes(const std::ostream& stream) {
  return isTerminal(stream) && !environment("TERM").empty() && environment("TERM") != "dumb";
}

std::string styled(const std::ostream& stream, Style style, std::string_view text) {
  if (!takesEscapes(stream) || !environment("NO_COLOR").empty()) return std::string(text);
  return std::string(sequenceOf(style)).append(text).append(kPlain);
}

}  // namespace quen::driver
