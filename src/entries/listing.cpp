// The names of a folder's entries, in the order in which the system delivers them.
//
// The kind of each entry is recorded in the runtime on the way, so that it is known already when
// the caller asks for it next. A folder that may not be read counts as empty.

#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "system/cancellation.h"
#include "system/open_folder.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

constexpr const char* kCannotEnumerate = "Cannot enumerate directory";

// In this order for every entry. The path is spelled as fs::directory_iterator spells it: the
// folder as given, joined with the name. The name is the last element of the path, not a copy.
void addEntry(void* names, const fs::path& entry) {
  const QuenPathEntryKind kind = Quen_pathEntryKind(entry);
  Quen_cachePathEntryKind(entry, kind);
  // Not std::prev, which does nothing to libc++'s path iterators: they are input iterators.
  const std::string name = Quen_visiblePathString(*--entry.end(), false);
  void* element = Quen_allocString(name);
  quen_collections_ArrayList_add(names, element);
}

// directory_options::skip_permission_denied covers the opening and the first entry (libstdc++,
// directory_iterator's constructor); a permission that is denied further on is an error.
void listOrRaise(const char* path, void* names) {
  const fs::path folder = Quen_runtimeFsPath(path);
  std::error_code error;
  OpenFolder open(folder, error);
  const char* name = error ? nullptr : open.next(error);
  if (error == std::errc::permission_denied) return;

  // One path for all entries, of which the last name is replaced.
  fs::path entry = name == nullptr ? fs::path() : folder / name;
  while (name != nullptr) {
    addEntry(names, entry);
    name = open.next(error);
    if (name != nullptr) entry.replace_filename(name);
  }
  if (error) raiseIOException(kCannotEnumerate);
}

}  // namespace

// The list is made first and returned whatever happens, with the names gathered by then.
void* quen_io_FolderPath__listNamesNative(const char* path) {
  void* names = Quen_allocObject("ArrayList");
  if (isEmpty(path)) return names;

  [[maybe_unused]] const CaughtCancellation protect;
  try {
    listOrRaise(path, names);
  } catch (const ForcedUnwind&) {
    throw;
  } catch (const std::exception& failure) {
    const char* description = failure.what();
    raiseIOException(isEmpty(description) ? kCannotEnumerate : description);
  } catch (...) {
    raiseIOException(kCannotEnumerate);
  }
  return names;
}
