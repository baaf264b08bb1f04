#include "driver/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <iostream>
#include <string>

#include "driver/terminal.h"
#include "driver/text.h"

namespace quen::driver {

namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr std::string_view kEraseLine = "\r\x1b[K";

std::size_t terminalWidth() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

// Truncates the text to the number of columns, counting two for each non-ASCII character: a line
// that is too short is harmless, but one that wraps cannot be erased.
std::string_view fitting(std::string_view text, std::size_t cells) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0u) == 0x80) continue;
    used += byte < 0x80 ? 1 : 2;
    if (used > cells) return text.substr(0, i);
  }
  return text;
}

// 1023 B, 4.2 MiB.
std::string readable(std::int64_t bytes) {
  constexpr std::array<const char*, 5> kUnits = {" B", " KiB", " MiB", " GiB", " TiB"};
  std::size_t unit = 0;
  std::int64_t tenths = bytes * 10;
  for (; tenths >= 10240 && unit + 1 < kUnits.size(); ++unit) tenths /= 1024;
  std::string text = std::to_string(tenths / 10);
  if (unit > 0) text.append(".").append(std::to_string(tenths % 10));
  return text + kUnits[unit];
}

}  // namespace

Progress::Progress(bool isWanted) : terminal_(isWanted && takesEscapes(std::cerr)) {}

void Progress::show(std::size_t entries, std::int64_t bytes, std::string_view where) {
  const Clock::time_point now = Clock::now();
  if (!terminal_ || stopped_ || now < next_) return;

  next_ = now + kInterval;
  shown_ = true;
  const std::string line =
      std::to_string(entries) + " entries, " + readable(bytes) + ", " + escaped(where);
  std::cerr << kEraseLine << fitting(line, terminalWidth() - 1) << std::flush;
}

void Progress::erase() {
  if (shown_) std::cerr << kEraseLine << std::flush;
  shown_ = false;
}

std::string_view Progress::stop() {
  stopped_ = true;
  return shown_ ? kEraseLine : "";
}

}  // namespace quen::driver
