#include "runtime/small/path_kinds.h"

#include <utility>

namespace quen::small {

void PathKinds::record(std::string_view path, QuenPathEntryKind kind) {
  if (path.size() > kMostBytes) return;
  const std::lock_guard lock(mutex_);
  const auto known = young_->kinds.find(path);
  if (known != young_->kinds.end()) {
    known->second = kind;
    return;
  }
  if (young_->kinds.size() >= kMostEntries || young_->bytes + path.size() > kMostBytes) {
    old_ = std::exchange(young_, std::make_unique<Generation>());
  }
  young_->kinds.emplace(path, kind);
  young_->bytes += path.size();
}

std::optional<QuenPathEntryKind> PathKinds::find(std::string_view path) const {
  const std::lock_guard lock(mutex_);
  for (const Generation* generation : {young_.get(), old_.get()}) {
    const auto found = generation->kinds.find(path);
    if (found != generation->kinds.end()) return found->second;
  }
  return std::nullopt;
}

std::size_t PathKinds::size() const {
  const std::lock_guard lock(mutex_);
  return young_->kinds.size() + old_->kinds.size();
}

void PathKinds::clear() {
  const std::lock_guard lock(mutex_);
  young_ = std::make_unique<Generation>();
  old_ = std::make_unique<Generation>();
}

}  // namespace quen::small
