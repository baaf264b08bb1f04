// The path that leads from a base to a target, between their weakly canonical forms, for which the
// file system is read. If that fails, the texts alone decide.
//
// The two differ in the last fallback, the target's normal form: the method makes a path object of
// it, the native member a String of its bytes without asking the runtime for the visible text.

#include <filesystem>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

// An empty result without an error is used as it is: the fallbacks are for errors.
void* quen_io_Path_relativize(void* self, void* base) {
  if (base == nullptr) return self;
  const char* targetText = Quen_filePathFromObject(self);
  const char* baseText = Quen_filePathFromObject(base);
  if (targetText == nullptr || baseText == nullptr) return self;

  const fs::path target = Quen_runtimeFsPath(targetText);
  const fs::path origin = Quen_runtimeFsPath(baseText);
  std::error_code error;
  fs::path relative = fs::relative(target, origin, error);
  if (error) relative = target.lexically_relative(origin);
  if (error && relative.empty()) relative = target.lexically_normal();

  const bool folder = isFolder(self);
  const bool parentTraversal =
      carriesParentTraversal(self, targetText) || carriesParentTraversal(base, baseText);
  return Quen_allocTypedPathObjectFromPath(relative, !folder, false, parentTraversal);
}

void* quen_io_Path__relativizePath(const char* target, const char* base) {
  if (target == nullptr) return Quen_allocString("");
  if (base == nullptr) return Quen_allocString(target);

  const fs::path destination = Quen_runtimeFsPath(target);
  const fs::path origin = Quen_runtimeFsPath(base);
  std::error_code error;
  const fs::path relative = fs::relative(destination, origin, error);
  if (!error) return Quen_allocPathString(relative, false);

  const fs::path lexical = destination.lexically_relative(origin);
  if (!lexical.empty()) return Quen_allocPathString(lexical, false);
  return Quen_allocString(destination.lexically_normal().string());
}
