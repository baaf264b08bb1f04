#include "runtime/checked/report.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string_view>

#include "runtime/quoted.h"
#include "src/system/cancellation.h"

namespace quen::checked {

namespace {

constexpr std::size_t kMostBytesShown = 60;

// One write for each line, so that those of several threads and processes are not mixed. open and
// write are cancellation points, where the module has none (pthreads(7)).
void writeLine(const std::string& words) {
  const io::WithoutCancellation guard;
  const std::string line = "quen_io_checked: " + words + '\n';
  const std::string& log = settings().log;
  const int file = log.empty()
                       ? STDERR_FILENO
                       : ::open(log.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  // Nobody is left to be told of a failure.
  static_cast<void>(!::write(file, line.data(), line.size()));
  if (file != STDERR_FILENO) ::close(file);
}

Settings readSettings() {
  Settings read;
  if (const char* log = std::getenv("QUEN_IO_CHECKED_LOG")) read.log = log;
  const char* value = std::getenv("QUEN_IO_CHECKED");
  std::string_view words = value == nullptr ? "" : value;
  while (!words.empty()) {
    const std::string_view word = words.substr(0, words.find(','));
    words.remove_prefix(word.size() == words.size() ? word.size() : word.size() + 1);
    read.abort |= word == "abort";
    read.passive |= word == "passive";
    if (word != "abort" && word != "passive" && word != "report") {
      static_cast<void>(std::fprintf(stderr,
                                     "quen_io_checked: unknown word in QUEN_IO_CHECKED: %.*s\n",
                                     static_cast<int>(word.size()), word.data()));
    }
  }
  return read;
}

// All findings. Allocated and never destroyed, because entry points may be called while the process
// exits.
struct Findings {
  std::mutex mutex;
  std::set<std::array<std::string_view, 3>> kinds;  // entry point, subject, claim
  std::uint64_t count = 0;
};

Findings& findings() {
  static auto* const all = new Findings;
  return *all;
}

// Writes the numbers when the process exits.
struct Summary {
  ~Summary() {
    const std::lock_guard lock(findings().mutex);
    writeLine("findings: " + std::to_string(findings().count) +
              ", different ones: " + std::to_string(findings().kinds.size()));
  }
};

}  // namespace

const Settings& settings() {
  static const auto* const read = new Settings(readSettings());
  return *read;
}

void report(const char* entryPoint, const char* subject, const char* claim,
            const std::string& details) {
  static const Summary summary;
  {
    const std::lock_guard lock(findings().mutex);
    ++findings().count;
    if (!findings().kinds.insert({entryPoint, subject, claim}).second) return;
    writeLine(std::string(entryPoint) + ": " + subject + ' ' + claim + details);
  }
  if (settings().abort) std::abort();
}

void stop(const char* entryPoint, const char* reason) {
  writeLine(std::string(entryPoint) + ": stopped: " + reason);
  std::abort();
}

std::string shown(const char* text) { return text == nullptr ? "null" : shown(std::string(text)); }

std::string shown(const std::string& bytes) { return quoted(bytes, kMostBytesShown); }

}  // namespace quen::checked
