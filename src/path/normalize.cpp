// The lexical core of Path: current directory, normal form, absolute form, parent and the two
// predicates. The only system call is the one that reads the current directory.
//
// The parent-traversal flag comes from the receiver and never from the result: "a/../b" normalizes
// to "b" and still carries it.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "conventions.h"
#include "path/normal_form.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

// The text before the last element and its separators, or the root if that is all there is.
std::string_view parentText(std::string_view text) {
  const std::size_t separator = text.find_last_of('/');
  if (separator == std::string_view::npos) return {};

  const std::size_t end = text.find_last_not_of('/', separator);
  if (end != std::string_view::npos) return text.substr(0, end + 1);
  return separator + 1 == text.size() ? text : text.substr(0, 1);
}

// The parent is taken from the path as given and normalized afterwards: of "a/b/../c" it is "a/".
fs::path normalParent(const char* text) {
  const fs::path given = Quen_runtimeFsPath(text);
  return normalForm(parentText(given.native()));
}

}  // namespace

void* __quen_propget_quen_io_Path_cwd() {
  std::error_code error;
  const fs::path current = normalForm(fs::current_path(error));
  return Quen_allocTypedPathObjectFromPath(current, false, false, false);
}

// Unlike the property, does not normalize what the system returns.
void* quen_io_Path__cwdPath() {
  std::error_code error;
  const fs::path current = fs::current_path(error);
  if (error) return Quen_allocString("");
  return Quen_allocPathString(current, false);
}

void* quen_io_Path_normalize(void* self) {
  const char* text = Quen_filePathFromObject(self);
  const bool folder = isFolder(self);
  const bool parentTraversal = carriesParentTraversal(self, text);
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);

  const fs::path normal = normalForm(Quen_runtimeFsPath(text));
  return Quen_allocTypedPathObjectFromPath(normal, !folder, windowsRoot, parentTraversal);
}

void* quen_io_Path__normalizePath(const char* path) {
  if (path == nullptr) return Quen_allocString("");

  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  return Quen_allocPathString(normalForm(Quen_runtimeFsPath(path)), windowsRoot);
}

// If the absolute form cannot be computed, the method continues with the path as given, and the
// native member returns its text unchanged.
void* quen_io_Path_toAbsolute(void* self) {
  const char* text = Quen_filePathFromObject(self);
  const bool folder = isFolder(self);
  const bool parentTraversal = carriesParentTraversal(self, text);
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);

  fs::path given = Quen_runtimeFsPath(text);
  std::error_code error;
  fs::path absolute = fs::absolute(given, error);
  const fs::path normal = normalForm(std::move(error ? given : absolute));
  return Quen_allocTypedPathObjectFromPath(normal, !folder, windowsRoot, parentTraversal);
}

void* quen_io_Path__absolutePath(const char* path) {
  if (path == nullptr) return Quen_allocString("");

  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  std::error_code error;
  fs::path absolute = fs::absolute(Quen_runtimeFsPath(path), error);
  if (error) return Quen_allocString(path);
  return Quen_allocPathString(normalForm(std::move(absolute)), windowsRoot);
}

void* quen_io_Path_parent(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return nullptr;
  const bool parentTraversal = carriesParentTraversal(self, text);
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);

  const fs::path parent = normalParent(text);
  if (parent.empty()) return nullptr;
  return Quen_allocTypedPathObjectFromPath(parent, false, windowsRoot, parentTraversal);
}

void* quen_io_Path__parentPath(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);

  const fs::path parent = normalParent(path);
  if (parent.empty()) return Quen_allocString("");
  return Quen_allocPathString(parent, windowsRoot);
}

bool quen_io_Path__isAbsolute(void* self) {
  const char* text = Quen_filePathFromObject(self);
  return !isEmpty(text) && Quen_runtimeFsPath(text).has_root_directory();
}

bool quen_io_Path__isNormalized(void* self) {
  const char* text = Quen_filePathFromObject(self);
  return !isEmpty(text) && hasNormalElements(Quen_runtimeFsPath(text).native());
}

bool __quen_propget_quen_io_Path_isAbsolute(void* self) { return quen_io_Path__isAbsolute(self); }
bool __quen_propget_quen_io_Path_isNormalized(void* self) {
  return quen_io_Path__isNormalized(self);
}
