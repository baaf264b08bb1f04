// One live line on standard error while an index is made; nothing where that is no terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace quen::driver {

class Progress {
 public:
  Progress();
  ~Progress() { erase(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows how far it is, unless it did so a moment ago.
  void show(std::size_t entries, std::int64_t bytes, std::string_view where);

  void erase();

 private:
  using Clock = std::chrono::steady_clock;

  bool terminal_;
  bool shown_ = false;
  Clock::time_point next_ = Clock::now();
};

}  // namespace quen::driver
