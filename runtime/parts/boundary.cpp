// Defines the symbols of the module's operations that a host may leave to quen::runtime_parts. They
// are weak, so that a host replaces any of them by defining it.

#include "quen/io/operations.h"
#include "runtime/parts/operations.h"

namespace fs = std::filesystem;
namespace parts = quen::parts;

#define QUEN_IO_UNLESS_DEFINED __attribute__((weak))

QUEN_IO_UNLESS_DEFINED fs::path Quen_runtimeFsPath(const char* text) {
  return parts::runtimeFsPath(text);
}

QUEN_IO_UNLESS_DEFINED std::string Quen_visiblePathString(const fs::path& path,
                                                          bool explicitWindowsRoot) {
  return parts::visiblePathString(path, explicitWindowsRoot);
}

QUEN_IO_UNLESS_DEFINED void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  return Quen_allocString(Quen_visiblePathString(path, explicitWindowsRoot));
}

QUEN_IO_UNLESS_DEFINED bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  return parts::pathHasExplicitWindowsRoot(text);
}

QUEN_IO_UNLESS_DEFINED QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  return parts::pathEntryKind(path);
}

QUEN_IO_UNLESS_DEFINED void Quen_cachePathEntryKind(const fs::path&, QuenPathEntryKind) {}

QUEN_IO_UNLESS_DEFINED bool Quen_pathExists(const fs::path& path) {
  return parts::pathExists(path);
}
