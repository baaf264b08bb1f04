// Links the static library with the small runtime, and checks that it works and that C++ exceptions
// are still caught inside it. Prints what failed and exits with 1.

#include <iostream>
#include <string>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace small = quen::small;

namespace {

bool holds(bool fact, const std::string& claim) {
  if (!fact) std::cerr << "not so: " << claim << '\n';
  return fact;
}

}  // namespace

int main() {
  const small::Scope scope;
  bool all = true;

  void* normal = quen_io_Path_normalize(small::newFolderPath("x/./y/../z/"));
  all &= holds(small::pathText(normal) == "x/z/", "x/./y/../z/ normalizes to x/z/");
  all &= holds(small::hasParentTraversal(normal), "and carries its parent traversal");

  // A C++ exception inside the module must be caught there: reading a directory fails.
  void* text = quen_io_FileReader__readAllTextPath("/");
  all &= holds(small::stringBytes(text).empty(), "a directory has no text");
  all &= holds(!small::takeException(), "and nothing is raised for it");

  void* names = quen_io_FolderPath__listNamesNative("/nowhere");
  all &= holds(small::listElements(names).empty(), "a missing folder has no entries");
  const auto exception = small::takeException();
  all &= holds(exception && exception->message == "Cannot enumerate directory", "which is raised");
  return all ? 0 : 1;
}
