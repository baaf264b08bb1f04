// Path operations against the standard library, and method, native member and getter against each
// other.

#include <filesystem>

#include "fuzz/fuzz.h"
#include "quen/io/entry_points.h"

namespace fs = std::filesystem;
using namespace quen::fuzz;
using namespace quen::small;

namespace {

std::string textOf(void* path) { return pathText(path).value_or("null"); }

// An empty path has no parent to return.
std::string textOrEmpty(void* path) { return path == nullptr ? "" : textOf(path); }

void examineOne(const std::string& text) {
  const fs::path path = text;
  const fs::path normal = path.lexically_normal();
  void* object = newPath(text);

  requireSame("normalizePath", stringBytes(quen_io_Path__normalizePath(text.c_str())),
              normal.native());
  requireSame("normalize", textOf(quen_io_Path_normalize(object)), normal.native());

  const std::string parent = text.empty() ? "" : path.parent_path().lexically_normal().native();
  requireSame("parentPath", stringBytes(quen_io_Path__parentPath(text.c_str())), parent);
  requireSame("parent", textOrEmpty(quen_io_Path_parent(object)), parent);

  require(quen_io_Path__isNormalized(object) == (!text.empty() && path == normal), "isNormalized");
  require(__quen_propget_quen_io_Path_isNormalized(object) == quen_io_Path__isNormalized(object),
          "isNormalized as a getter");
  require(quen_io_Path__isAbsolute(object) == path.has_root_directory(), "isAbsolute");

  requireSame("pathName", stringBytes(quen_io_Path__pathName(text.c_str())),
              path.filename().native());
  requireSame("name", stringBytes(quen_io_Path_name(object)), path.filename().native());
  const std::string extension = path.extension().native();
  requireSame("pathExtension", stringBytes(quen_io_Path__pathExtension(text.c_str())),
              extension.empty() ? "" : extension.substr(1));
  requireSame("extension as a getter", stringBytes(__quen_propget_quen_io_Path_extension(object)),
              extension.empty() ? "" : extension.substr(1));
}

void examineTwo(const std::string& base, const std::string& operand) {
  const fs::path joined = fs::path(operand).has_root_directory()
                              ? fs::path(operand).lexically_normal()
                              : (fs::path(base) / operand).lexically_normal();
  void* byText = quen_io_Path_resolve(newPath(base), const_cast<char*>(operand.c_str()));
  void* byObject = quen_io_Path_resolve__dup2(newPath(base), newPath(operand));
  requireSame("resolve by text", textOf(byText), joined.native());
  requireSame("resolve by object", textOf(byObject), joined.native());
  require(isFolderPath(byText) == (operand.ends_with('/') || operand.ends_with('\\')), "folder");
  require(hasParentTraversal(byText) == hasParentTraversal(byObject), "traversal");
  requireSame("resolvePath", stringBytes(quen_io_Path__resolvePath(base.c_str(), operand.c_str())),
              base.empty()      ? operand
              : operand.empty() ? base
                                : joined.native());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Scope scope;
  Input input(data, size);
  const std::string base = input.text();
  const std::string operand = input.text();
  examineOne(base);
  examineTwo(base, operand);
  requireSame("raised", raised(), "");
  return 0;
}
