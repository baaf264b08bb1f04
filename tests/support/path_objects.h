// What can be seen of a path object, in a form that can be compared and printed.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "runtime/small/host.h"

namespace quen::tests {

struct Seen {
  std::optional<std::string> text;  // none for null and for an object without a path
  bool folder = false;
  bool parentTraversal = false;

  bool operator==(const Seen&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Seen& seen) {
  if (!seen.text) return stream << "no path";
  return stream << (seen.folder ? "folder \"" : "non-folder \"") << *seen.text << '"'
                << (seen.parentTraversal ? " with parent traversal" : "");
}

inline Seen seen(void* path) {
  return {small::pathText(path), small::isFolderPath(path), small::hasParentTraversal(path)};
}

}  // namespace quen::tests
