// The small accessors of a path: its last name, the extension of that name, the kind of the entry
// as a word, and the roots of the file system. A missing name or extension is the empty String,
// never null.

#include <filesystem>
#include <string>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

const char* kindWord(QuenPathEntryKind kind) {
  switch (kind) {
    case QuenPathEntryKind::kDirectory: return "directory";
    case QuenPathEntryKind::kRegularFile: return "file";
  }
  return "unknown";  // every other value the runtime has
}

}  // namespace

// A path that ends in a separator has an empty file name, for which the runtime is called as well.
// In any other path the file name is the last element, which saves the copy that filename() makes.
void* quen_io_Path__pathName(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");

  const fs::path given = Quen_runtimeFsPath(path);
  if (!given.has_filename()) return Quen_allocPathString(fs::path(), true);
  // Not std::prev, which does nothing to libc++'s path iterators: they are input iterators.
  return Quen_allocPathString(*--given.end(), true);
}

void* quen_io_Path_name(void* self) {
  return quen_io_Path__pathName(Quen_filePathFromObject(self));
}

// Dot files (".profile") and the names "." and ".." have none.
void* quen_io_Path__pathExtension(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");

  std::string extension = Quen_visiblePathString(Quen_runtimeFsPath(path).extension(), true);
  if (extension.starts_with('.')) extension.erase(0, 1);
  return Quen_allocString(extension);
}

void* quen_io_Path_extension(void* self) {
  return quen_io_Path__pathExtension(Quen_filePathFromObject(self));
}

void* quen_io_Path__pathKindPath(const char* path) {
  if (isEmpty(path)) return Quen_allocString("unknown");
  return Quen_allocString(kindWord(Quen_pathEntryKind(Quen_runtimeFsPath(path))));
}

void* quen_io_Path__rootStringsNative() {
  void* roots = Quen_allocObject("ArrayList");
  void* root = Quen_allocString("/");
  quen_collections_ArrayList_add(roots, root);
  return roots;
}

void* __quen_propget_quen_io_Path_name(void* self) { return quen_io_Path_name(self); }
void* __quen_propget_quen_io_Path_extension(void* self) { return quen_io_Path_extension(self); }
