// Recursive removal, and the guard that refuses it for roots, for the home directories and for any
// path with a ".." segment.
//
// The guard refuses exact matches only, on purpose: what is inside a home directory, and the folder
// that a home directory is in, may be removed.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

using Locations = std::vector<fs::path>;

bool contains(const Locations& locations, const fs::path& path) {
  return std::find(locations.begin(), locations.end(), path) != locations.end();
}

// A value that cannot be made absolute protects nothing; one without a canonical form is protected
// as it is spelled.
void addLocation(Locations& locations, const char* value) {
  if (isEmpty(value)) return;

  std::error_code error;
  const fs::path absolute = fs::absolute(Quen_runtimeFsPath(value), error);
  if (error) return;

  const fs::path normal = absolute.lexically_normal();
  const fs::path canonical = fs::weakly_canonical(normal, error);
  const fs::path& location = error ? normal : canonical;
  if (!contains(locations, location)) locations.push_back(location);
}

// Read once, at the first removal that gets this far: later changes of the environment or of the
// working directory do not change what is protected. Quen_runtimeFsPath is called inside the static
// initialization, so it may not ask the guard.
const Locations& protectedDeleteLocations() {
  static const Locations locations = [] {
    Locations found;
    addLocation(found, std::getenv("QUEN_HOME"));
    addLocation(found, std::getenv("HOME"));
    return found;
  }();
  return locations;
}

}  // namespace

// A path without a canonical form is judged by the lexical checks alone.
bool Quen_isUnsafeRecursiveDeletePath(const char* path) {
  if (isEmpty(path)) return true;
  if (containsParentTraversalSegment(path)) return true;

  std::error_code error;
  const fs::path absolute = fs::absolute(Quen_runtimeFsPath(path), error);
  if (error) return true;

  const fs::path candidate = absolute.lexically_normal();
  const fs::path root = candidate.root_path().lexically_normal();
  // An absolute path has a root on every POSIX host, so the root is not empty; the rule is stated
  // for hosts where it could be.
  if (root.empty() || candidate == root) return true;
  if (candidate.relative_path().empty()) return true;
  const Locations& locations = protectedDeleteLocations();
  if (contains(locations, candidate)) return true;

  const fs::path canonical = fs::weakly_canonical(candidate, error);
  return !error && contains(locations, canonical);
}

// The guard is given the text as it came, since a ".." is a matter of spelling.
void quen_io_FolderPath__removeAllNative(const char* path) {
  if (!requirePath(path, "Path is empty")) return;
  if (Quen_isUnsafeRecursiveDeletePath(path)) {
    raiseIOException("Recursive deletion rejects unsafe root or parent traversal");
    return;
  }
  std::error_code error;
  fs::remove_all(Quen_runtimeFsPath(path), error);
  if (error) raiseIOException("Cannot remove directory recursively");
}
