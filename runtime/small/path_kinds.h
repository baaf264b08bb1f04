// A thread-safe cache of the kinds of entries by path, of bounded size.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "quen/io/operations.h"

namespace quen::small {

// Two generations approximate eviction of the least recently recorded entries: when the young
// generation is full, the old one is dropped and the young one becomes the old one. A path that is
// in both has the kind that the young one says.
class PathKinds {
 public:
  void record(std::string_view path, QuenPathEntryKind kind);
  std::optional<QuenPathEntryKind> find(std::string_view path) const;
  std::size_t size() const;
  void clear();

 private:
  static constexpr std::size_t kMostEntries = 32768;  // per generation
  static constexpr std::size_t kMostBytes =
      std::size_t{8} * 1024 * 1024;  // of path text per generation

  // Not noexcept, so that the map stores the hashes.
  struct Hash {
    using is_transparent = void;  // NOLINT(readability-identifier-naming): of the library
    std::size_t operator()(std::string_view path) const {
      return std::hash<std::string_view>()(path);
    }
  };

  // Entries are never removed one by one, so their memory comes from a few large blocks.
  struct Generation {
    std::pmr::monotonic_buffer_resource memory;
    std::pmr::unordered_map<std::pmr::string, QuenPathEntryKind, Hash, std::equal_to<>> kinds{
        &memory};
    std::size_t bytes = 0;
  };

  mutable std::mutex mutex_;
  std::unique_ptr<Generation> young_ = std::make_unique<Generation>();
  std::unique_ptr<Generation> old_ = std::make_unique<Generation>();
};

}  // namespace quen::small
