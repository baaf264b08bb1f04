// The summary that quen-io index prints at the end.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "driver/walk.h"

namespace quen::driver {

class IndexSummary {
 public:
  void add(const Entry& entry);

  std::size_t entries() const { return entries_; }
  std::int64_t bytes() const { return bytes_; }
  std::size_t unreadable() const { return unreadable_; }

  void print(std::ostream& output, std::int64_t maxTextBytes,
             std::chrono::steady_clock::duration elapsed) const;

 private:
  std::size_t count(Kind kind) const { return kinds_.at(static_cast<std::size_t>(kind)); }
  std::size_t count(Text text) const { return texts_.at(static_cast<std::size_t>(text)); }

  std::size_t entries_ = 0;
  std::array<std::size_t, kKinds.size()> kinds_{};
  std::array<std::size_t, kTexts.size()> texts_{};
  std::int64_t bytes_ = 0;
  std::size_t unreadable_ = 0;
  std::vector<std::string> named_;  // the first unreadable entries, with reasons
};

}  // namespace quen::driver
