// Path operations: lexical ones of std::filesystem::path, relative and absolute paths.

#include <filesystem>
#include <string>
#include <system_error>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "tests/plain/conventions.h"

namespace fs = std::filesystem;
using namespace quen::plain;

namespace {

// The parent is taken before the path is normalized.
fs::path normalParent(const char* text) {
  return Quen_runtimeFsPath(text).parent_path().lexically_normal();
}

bool haveExplicitWindowsRoot(const char* base, const char* operand) {
  return Quen_pathHasExplicitWindowsRoot(base) || Quen_pathHasExplicitWindowsRoot(operand);
}

// An operand with a root directory replaces the base.
fs::path resolved(const fs::path& base, const fs::path& operand) {
  if (operand.has_root_directory()) return operand.lexically_normal();
  return (base / operand).lexically_normal();
}

bool endsInSeparator(const std::string& text) {
  return text.ends_with('/') || text.ends_with('\\');
}

// The flags that a derived path inherits from a path object, queried in this order.
struct Receiver {
  explicit Receiver(void* self)
      : text(Quen_filePathFromObject(self)),
        nonFolder(!isFolder(self)),
        parentTraversal(carriesParentTraversal(self, text)),
        windowsRoot(Quen_pathHasExplicitWindowsRoot(text)) {}

  void* normalFormOf(const fs::path& path) const {
    return Quen_allocTypedPathObjectFromPath(path.lexically_normal(), nonFolder, windowsRoot,
                                             parentTraversal);
  }

  const char* text;
  bool nonFolder;
  bool parentTraversal;
  bool windowsRoot;
};

struct Relative {
  fs::path path;
  bool isTarget;  // the fallback: the target's normal form, as there is no relative path
};

// Only an error of the relative operation selects the fallbacks.
Relative relativeTo(const char* baseText, const char* targetText) {
  const fs::path target = Quen_runtimeFsPath(targetText);
  const fs::path base = Quen_runtimeFsPath(baseText);
  std::error_code error;
  const fs::path relative = fs::relative(target, base, error);
  if (!error) return {relative, false};

  const fs::path lexical = target.lexically_relative(base);
  if (lexical.empty()) return {target.lexically_normal(), true};
  return {lexical, false};
}

void* resolveText(void* self, const char* operandText, bool operandTraversal) {
  if (self == nullptr || operandText == nullptr) return self;
  const char* baseText = Quen_filePathFromObject(self);
  const fs::path base = Quen_runtimeFsPath(baseText);
  const fs::path operand = Quen_runtimeFsPath(operandText);
  const bool windowsRoot = haveExplicitWindowsRoot(baseText, operandText);

  bool parentTraversal = operandTraversal || containsParentTraversalSegment(operandText);
  if (!parentTraversal && !operand.has_root_directory()) {
    parentTraversal = carriesParentTraversal(self, baseText);
  }
  const bool nonFolder = !endsInSeparator(operandText);
  return Quen_allocTypedPathObjectFromPath(resolved(base, operand), nonFolder, windowsRoot,
                                           parentTraversal);
}

}  // namespace

// Current directory, normal form, absolute form, parent, predicates.

void* __quen_propget_quen_io_Path_cwd() {
  std::error_code error;
  const fs::path current = fs::current_path(error);
  const fs::path normal = error ? fs::path() : current.lexically_normal();
  return Quen_allocTypedPathObjectFromPath(normal, false, false, false);
}

void* quen_io_Path__cwdPath() {
  std::error_code error;
  const fs::path current = fs::current_path(error);
  return error ? Quen_allocString("") : Quen_allocPathString(current, false);
}

void* quen_io_Path_normalize(void* self) {
  const Receiver receiver(self);
  return receiver.normalFormOf(Quen_runtimeFsPath(receiver.text));
}

void* quen_io_Path__normalizePath(const char* path) {
  if (path == nullptr) return Quen_allocString("");
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  const fs::path normal = Quen_runtimeFsPath(path).lexically_normal();
  return Quen_allocPathString(normal, windowsRoot);
}

void* quen_io_Path_toAbsolute(void* self) {
  const Receiver receiver(self);
  const fs::path given = Quen_runtimeFsPath(receiver.text);
  std::error_code error;
  const fs::path absolute = fs::absolute(given, error);
  return receiver.normalFormOf(error ? given : absolute);
}

void* quen_io_Path__absolutePath(const char* path) {
  if (path == nullptr) return Quen_allocString("");
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  std::error_code error;
  const fs::path absolute = fs::absolute(Quen_runtimeFsPath(path), error);
  return error ? Quen_allocString(path)
               : Quen_allocPathString(absolute.lexically_normal(), windowsRoot);
}

void* quen_io_Path_parent(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return nullptr;
  const bool parentTraversal = carriesParentTraversal(self, text);
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
  if (const fs::path parent = normalParent(text); !parent.empty()) {
    return Quen_allocTypedPathObjectFromPath(parent, false, windowsRoot, parentTraversal);
  }
  return nullptr;
}

void* quen_io_Path__parentPath(const char* path) {
  if (!isEmpty(path)) {
    const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
    const fs::path parent = normalParent(path);
    if (!parent.empty()) return Quen_allocPathString(parent, windowsRoot);
  }
  return Quen_allocString("");
}

bool quen_io_Path__isAbsolute(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;
  return Quen_runtimeFsPath(text).has_root_directory();
}

bool quen_io_Path__isNormalized(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;
  const fs::path path = Quen_runtimeFsPath(text);
  return path == path.lexically_normal();
}

// From one path to another.

void* quen_io_Path_relativize(void* self, void* base) {
  if (base == nullptr) return self;
  const char* targetText = Quen_filePathFromObject(self);
  const char* baseText = Quen_filePathFromObject(base);
  if (targetText == nullptr || baseText == nullptr) return self;

  const fs::path result = relativeTo(baseText, targetText).path;
  const bool nonFolder = !isFolder(self);
  bool parentTraversal = carriesParentTraversal(self, targetText);
  if (!parentTraversal) parentTraversal = carriesParentTraversal(base, baseText);
  return Quen_allocTypedPathObjectFromPath(result, nonFolder, false, parentTraversal);
}

void* quen_io_Path__relativizePath(const char* target, const char* base) {
  if (target == nullptr || base == nullptr) {
    return Quen_allocString(target == nullptr ? "" : target);
  }
  const Relative result = relativeTo(base, target);
  if (result.isTarget) return Quen_allocString(result.path.string());
  return Quen_allocPathString(result.path, false);
}

// Joining. The operand is a path object or a C string.

void* quen_io_Path_resolve(void* self, void* operand) {
  if (hasObjectMagic(operand)) {
    const char* text = Quen_filePathFromObject(operand);
    const bool parentTraversal = carriesParentTraversal(operand, text);
    return resolveText(self, text == nullptr ? "" : text, parentTraversal);
  }
  return resolveText(self, static_cast<const char*>(operand), false);
}

void* quen_io_Path__resolvePath(const char* base, const char* operand) {
  if (isEmpty(base) || isEmpty(operand)) {
    const char* other = isEmpty(base) ? operand : base;
    return Quen_allocString(other == nullptr ? "" : other);
  }
  const bool windowsRoot = haveExplicitWindowsRoot(base, operand);
  const fs::path basePath = Quen_runtimeFsPath(base);
  const fs::path operandPath = Quen_runtimeFsPath(operand);
  return Quen_allocPathString(resolved(basePath, operandPath), windowsRoot);
}

// Name, extension, kind, roots.

void* quen_io_Path__pathName(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  return Quen_allocPathString(Quen_runtimeFsPath(path).filename(), true);
}

void* quen_io_Path__pathExtension(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  const fs::path extension = Quen_runtimeFsPath(path).extension();
  std::string text = Quen_visiblePathString(extension, true);
  if (text.starts_with('.')) text.erase(0, 1);
  return Quen_allocString(text);
}

void* quen_io_Path__pathKindPath(const char* path) {
  if (isEmpty(path)) return Quen_allocString("unknown");
  const QuenPathEntryKind kind = Quen_pathEntryKind(Quen_runtimeFsPath(path));
  if (kind == QuenPathEntryKind::kDirectory) return Quen_allocString("directory");
  if (kind == QuenPathEntryKind::kRegularFile) return Quen_allocString("file");
  return Quen_allocString("unknown");
}

void* quen_io_Path__rootStringsNative() {
  void* roots = Quen_allocObject("ArrayList");
  void* root = Quen_allocString("/");
  quen_collections_ArrayList_add(roots, root);
  return roots;
}
