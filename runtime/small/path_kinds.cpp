#include "runtime/small/path_kinds.h"

#include <utility>

namespace quen::small {

void PathKinds::record(const std::string& path, QuenPathEntryKind kind) {
  const std::lock_guard lock(mutex_);
  if (young_.size() >= kMostEntries || youngBytes_ + path.size() > kMostBytes) {
    old_ = std::exchange(young_, {});
    youngBytes_ = 0;
  }
  if (path.size() > kMostBytes) return;
  old_.erase(path);
  if (young_.insert_or_assign(path, kind).second) youngBytes_ += path.size();
}

std::optional<QuenPathEntryKind> PathKinds::find(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  for (const Generation* generation : {&young_, &old_}) {
    const auto found = generation->find(path);
    if (found != generation->end()) return found->second;
  }
  return std::nullopt;
}

std::size_t PathKinds::size() const {
  const std::lock_guard lock(mutex_);
  return young_.size() + old_.size();
}

void PathKinds::clear() {
  const std::lock_guard lock(mutex_);
  young_.clear();
  old_.clear();
  youngBytes_ = 0;
}

}  // namespace quen::small
