// Joins a second path onto a first: a second path with a root directory replaces the first, any
// other is appended, and the result is normalized.
//
// The method takes either a path object or a raw path text as its operand. Only the text of the
// operand decides whether the result is a folder.

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "conventions.h"
#include "path/normal_form.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

// Does on the texts what operator/ of fs::path does: a base that ends in a name gets a separator,
// even if the operand is empty. A base that begins with "//" is left to the library.
fs::path join(const fs::path& base, const fs::path& operand) {
  if (operand.has_root_directory()) return normalForm(operand);
  if (base.native().starts_with("//")) return (base / operand).lexically_normal();

  std::string text;
  text.reserve(base.native().size() + 1 + operand.native().size());
  text = base.native();
  if (!text.empty() && text.back() != '/') text += '/';
  text += operand.native();
  return normalFormOf(text);
}

bool haveExplicitWindowsRoot(const char* base, const char* operand) {
  return Quen_pathHasExplicitWindowsRoot(base) || Quen_pathHasExplicitWindowsRoot(operand);
}

bool endsInSeparator(std::string_view text) { return text.ends_with('/') || text.ends_with('\\'); }

// The parent traversal of a receiver that is replaced does not count.
void* quen_io_Path_resolve_string_impl(void* self, const char* operandText, bool operandTraversal) {
  if (self == nullptr) return nullptr;
  if (operandText == nullptr) return self;

  const char* baseText = Quen_filePathFromObject(self);
  const fs::path base = Quen_runtimeFsPath(baseText);
  const fs::path operand = Quen_runtimeFsPath(operandText);
  const bool windowsRoot = haveExplicitWindowsRoot(baseText, operandText);
  const fs::path resolved = join(base, operand);
  const bool parentTraversal =
      operandTraversal || containsParentTraversalSegment(operandText) ||
      (!operand.has_root_directory() && carriesParentTraversal(self, baseText));
  const bool folder = endsInSeparator(operandText);
  return Quen_allocTypedPathObjectFromPath(resolved, !folder, windowsRoot, parentTraversal);
}

}  // namespace

// An object without a path text counts as the empty text; a null operand returns the receiver.
void* quen_io_Path_resolve(void* self, void* operand) {
  if (!hasObjectMagic(operand)) {
    return quen_io_Path_resolve_string_impl(self, static_cast<const char*>(operand), false);
  }
  const char* text = Quen_filePathFromObject(operand);
  const bool parentTraversal = carriesParentTraversal(operand, text);
  return quen_io_Path_resolve_string_impl(self, text == nullptr ? "" : text, parentTraversal);
}

// With an empty operand, the native member returns the base unchanged, whereas the method appends
// the operand.
void* quen_io_Path__resolvePath(const char* base, const char* operand) {
  if (isEmpty(base)) return Quen_allocString(operand == nullptr ? "" : operand);
  if (isEmpty(operand)) return Quen_allocString(base);

  const bool windowsRoot = haveExplicitWindowsRoot(base, operand);
  const fs::path basePath = Quen_runtimeFsPath(base);
  const fs::path operandPath = Quen_runtimeFsPath(operand);
  return Quen_allocPathString(join(basePath, operandPath), windowsRoot);
}

void* quen_io_Path_resolve__dup2(void* self, void* operand) {
  return quen_io_Path_resolve(self, operand);
}
void* quen_io_Path_resolve__dup3(void* self, void* operand) {
  return quen_io_Path_resolve(self, operand);
}
