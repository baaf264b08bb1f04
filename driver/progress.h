// A progress line on standard error, which is overwritten at each update. Nothing is shown unless
// standard error is a terminal with escape sequences.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string_view>

namespace quen::driver {

class Progress {
 public:
  explicit Progress(bool isWanted = true);
  ~Progress() { erase(); }
  Progress& operator=(Progress&&) = delete;  // neither copyable nor movable

  // Shows the progress; rate-limited.
  void show(std::size_t entries, std::int64_t bytes, std::string_view where);

  void erase();

  // Called from another thread before the process terminates. Disables further updates and returns
  // the escape sequence that erases the line, to be printed before the last message.
  std::string_view stop();

 private:
  using Clock = std::chrono::steady_clock;

  bool terminal_;
  std::atomic<bool> shown_ = false;
  std::atomic<bool> stopped_ = false;
  Clock::time_point next_ = Clock::now();
};

}  // namespace quen::driver
