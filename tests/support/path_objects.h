// The observable state of a path object, in a form that can be compared and printed.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "runtime/small/host.h"

namespace quen::tests {

struct PathState {
  std::optional<std::string> text;  // none for null and for an object without a path
  bool folder = false;
  bool parentTraversal = false;

  bool operator==(const PathState&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const PathState& state) {
  if (!state.text) return stream << "no path";
  return stream << (state.folder ? "folder \"" : "non-folder \"") << *state.text << '"'
                << (state.parentTraversal ? " with parent traversal" : "");
}

inline PathState stateOf(void* path) {
  return {small::pathText(path), small::isFolderPath(path), small::hasParentTraversal(path)};
}

}  // namespace quen::tests
