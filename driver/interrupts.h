// Orderly termination on SIGINT, SIGTERM or SIGHUP, independent of what the other threads are
// doing.
#pragma once

#include <array>
#include <csignal>
#include <functional>
#include <thread>

namespace quen::driver {

// While it exists, such a signal calls `tidy` on a separate thread and then terminates the process
// by the signal, so that a shell recognizes an interrupted command and ends its loop. Other threads
// are not joined, because an entry point may be reading a large file. A second signal of the same
// kind terminates the process immediately. A signal that was ignored (nohup) stays ignored. Only
// one object may exist at a time.
class Interrupts {
 public:
  explicit Interrupts(std::function<void()> tidy);
  ~Interrupts();
  Interrupts& operator=(Interrupts&&) = delete;  // neither copyable nor movable

 private:
  static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

  void waitAndEnd() const;

  std::function<void()> tidy_;
  int reading_ = -1;
  std::array<struct sigaction, kSignals.size()> usual_ = {};
  std::thread thread_;
};

// Writes the text to standard error, unless that would block for long: a stopped terminal or a full
// pipe must not keep the process from terminating.
void tellIfPossible(const std::string& text);

}  // namespace quen::driver
