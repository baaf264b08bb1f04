// Programs of threads that call the entry points of writers, and what they may lead to.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "tests/interleavings/explorer.h"
#include "tests/interleavings/files.h"
#include "tests/interleavings/module.h"

namespace quen::interleavings {

// The letters of a program's text, one for each call:
//
//   W L F C     write a short text or one longer than the buffer, flush, close: through a handle
//               that was opened before the threads begin, which they share
//   o w f c     open a file of the thread's own, and the same calls through its handle
//   U S         write through a handle that was never issued; in S Quen_raise does not return
//   X           what the exit of the process does; the last call of its thread
//   K           fork; the child writes its copies out and exits
//
// Each thread has a row: {"WC", "F"}.
using Rows = std::vector<std::string>;

class WriterProgram : public Program {
 public:
  explicit WriterProgram(Rows rows, Disk disk = Disk::kWorks);

  int threads() const override { return static_cast<int>(rows_.size()); }
  void begin() override;
  void run(int thread) override;
  void finish() override;
  void judge() override;

  // What the schedules led to so far, without the order of the calls.
  const std::unordered_set<std::string>& outcomes() const { return outcomes_; }

 private:
  static constexpr int kShared = kMostThreads;  // the number of the shared handle
  static constexpr std::size_t kMostHandles = kMostThreads + 1;

  struct Call {
    int thread;
    int index;
    char letter;
    Raised raised;
  };
  struct Model;
  using Counts = std::array<int, kMostThreads>;

  void perform(int thread, int index, char letter);
  void exitTheProcess(int thread);
  void forkTheProcess(int thread);
  void exitTheChild(int thread, bool isRegistryFree);
  void requireTexts(const Counts& returned, int thread,
                    const std::function<int(int other)>& callOf) const;
  void requireTextsOf(int handle, const Counts& returned) const;
  bool isUsedBy(int thread, int call, int handle) const;
  std::vector<Call> callsOn(int handle) const;
  bool isLinearizable(int handle) const;
  bool extend(const Model& model, const std::vector<Call>& calls, unsigned done,
              const std::vector<unsigned>& before, const std::vector<unsigned>& overlapping,
              const std::string& texts) const;
  std::string outcome() const;
  std::string order() const;

  Rows rows_;
  Disk disk_;
  bool hasBlocked_ = false;
  bool hasExited_ = false;  // and found the registry unlocked
  std::array<std::int64_t, kMostHandles> handles_{};
  std::array<std::array<Raised, kMostCalls>, kMostThreads> raised_{};
  Counts returned_{};  // the number of calls
  std::unordered_set<std::string> outcomes_;
  std::unordered_set<std::string> judged_;
};

}  // namespace quen::interleavings
