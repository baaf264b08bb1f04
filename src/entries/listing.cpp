// The names of a folder's entries, in the order in which the system delivers them.
//
// The kind of each entry is recorded in the runtime on the way, so that whoever walks the folder
// next need not ask for it again. A folder that may not be read counts as empty.

#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

constexpr const char* kCannotEnumerate = "Cannot enumerate directory";

// In this order for every entry, with the path spelled as the iteration delivers it.
void addEntry(void* names, const fs::path& entry) {
  const QuenPathEntryKind kind = Quen_pathEntryKind(entry);
  Quen_cachePathEntryKind(entry, kind);
  const std::string name = Quen_visiblePathString(entry.filename(), false);
  void* element = Quen_allocString(name);
  quen_collections_ArrayList_add(names, element);
}

void listOrRaise(const char* path, void* names) {
  const fs::path folder = Quen_runtimeFsPath(path);
  std::error_code error;
  fs::directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
  while (!error && entry != fs::directory_iterator()) {
    addEntry(names, entry->path());
    entry.increment(error);
  }
  if (error) raiseIOException(kCannotEnumerate);
}

}  // namespace

// The list is made first and returned whatever happens, with the names gathered by then.
void* quen_io_FolderPath__listNamesNative(const char* path) {
  void* names = Quen_allocObject("ArrayList");
  if (isEmpty(path)) return names;

  try {
    listOrRaise(path, names);
  } catch (const std::exception& failure) {
    const char* description = failure.what();
    raiseIOException(isEmpty(description) ? kCannotEnumerate : description);
  } catch (...) {
    raiseIOException(kCannotEnumerate);
  }
  return names;
}
