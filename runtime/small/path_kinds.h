// The record of what kind of entry each path was last found to be. Thread-safe, bounded.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "quen/io/operations.h"

namespace quen::small {

// Kept in two generations: when the younger is full, the elder is forgotten and the younger takes
// its place. So what is recorded last is always kept, and never more than two full generations.
class PathKinds {
 public:
  void record(const std::string& path, QuenPathEntryKind kind);
  std::optional<QuenPathEntryKind> find(const std::string& path) const;
  std::size_t size() const;
  void clear();

 private:
  using Generation = std::unordered_map<std::string, QuenPathEntryKind>;
  static constexpr std::size_t kMostEntries = 32768;                       // of a generation
  static constexpr std::size_t kMostBytes = std::size_t{8} * 1024 * 1024;  // of path text in it

  mutable std::mutex mutex_;
  Generation younger_;
  Generation elder_;
  std::size_t youngerBytes_ = 0;
};

}  // namespace quen::small
