// Texts of paths and kinds of entries.

#include <string_view>
#include <system_error>

#include "quen/io/runtime_parts.h"
#include "runtime/parts/operations.h"

namespace fs = std::filesystem;

namespace quen::parts {

namespace {

bool isAsciiLetter(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

bool isSeparator(char character) { return character == '/' || character == '\\'; }

QuenPathEntryKind kindOf(const fs::file_status& status) {
  switch (status.type()) {
    case fs::file_type::regular: return QuenPathEntryKind::kRegularFile;
    case fs::file_type::directory: return QuenPathEntryKind::kDirectory;
    case fs::file_type::none:
    case fs::file_type::not_found: return kMissingEntry;
    default: return kOtherEntry;
  }
}

}  // namespace

fs::path runtimeFsPath(const char* text) { return text == nullptr ? "" : text; }

// Paths of this host have no drive or UNC root to render, so the flag makes no difference.
std::string visiblePathString(const fs::path& path, bool) { return path.native(); }

// "C:\", "C:/" or "\\server".
bool pathHasExplicitWindowsRoot(const char* text) {
  const std::string_view path = text == nullptr ? "" : text;
  if (path.size() < 3) return false;
  const bool drive = isAsciiLetter(path[0]) && path[1] == ':' && isSeparator(path[2]);
  return drive || (path.starts_with("\\\\") && !isSeparator(path[2]));
}

QuenPathEntryKind pathEntryKind(const fs::path& path) {
  std::error_code error;
  return kindOf(fs::status(path, error));
}

bool pathExists(const fs::path& path) { return pathEntryKind(path) != kMissingEntry; }

}  // namespace quen::parts
