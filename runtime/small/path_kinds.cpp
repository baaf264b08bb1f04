#include "runtime/small/path_kinds.h"

#include <utility>

namespace quen::small {

void PathKinds::record(const std::string& path, QuenPathEntryKind kind) {
  const std::lock_guard lock(mutex_);
  if (younger_.size() >= kMostEntries || youngerBytes_ + path.size() > kMostBytes) {
    elder_ = std::exchange(younger_, {});
    youngerBytes_ = 0;
  }
  if (path.size() > kMostBytes) return;
  elder_.erase(path);
  if (younger_.insert_or_assign(path, kind).second) youngerBytes_ += path.size();
}

std::optional<QuenPathEntryKind> PathKinds::find(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  for (const Generation* generation : {&younger_, &elder_}) {
    const auto found = generation->find(path);
    if (found != generation->end()) return found->second;
  }
  return std::nullopt;
}

std::size_t PathKinds::size() const {
  const std::lock_guard lock(mutex_);
  return younger_.size() + elder_.size();
}

void PathKinds::clear() {
  const std::lock_guard lock(mutex_);
  younger_.clear();
  elder_.clear();
  youngerBytes_ = 0;
}

}  // namespace quen::small
