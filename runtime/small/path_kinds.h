// A thread-safe cache of the kinds of entries by path, of bounded size.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "quen/io/operations.h"

namespace quen::small {

// Two generations approximate eviction of the least recently recorded entries: when the young
// generation is full, the old one is dropped and the young one becomes the old one.
class PathKinds {
 public:
  void record(const std::string& path, QuenPathEntryKind kind);
  std::optional<QuenPathEntryKind> find(const std::string& path) const;
  std::size_t size() const;
  void clear();

 private:
  using Generation = std::unordered_map<std::string, QuenPathEntryKind>;
  static constexpr std::size_t kMostEntries = 32768;  // per generation
  static constexpr std::size_t kMostBytes =
      std::size_t{8} * 1024 * 1024;  // of path text per generation

  mutable std::mutex mutex_;
  Generation young_;
  Generation old_;
  std::size_t youngBytes_ = 0;
};

}  // namespace quen::small
