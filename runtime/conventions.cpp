// The conventions that all entry points share.

#include "runtime/conventions.h"

#include <string_view>

#include "quen/io/operations.h"

namespace quen::io {

bool isEmpty(const char* text) { return text == nullptr || *text == '\0'; }

void raiseIOException(const char* message) { Quen_raise("IOException", message); }

void raiseTypeError(const std::string& words) {
  Quen_raise("TypeError", words.empty() ? "Expected Byte[]" : words.c_str());
}

bool requirePath(const char* text, const char* message) {
  if (!isEmpty(text)) return true;
  raiseIOException(message);
  return false;
}

bool isFolder(void* object) {
  return Quen_isInstanceOf(object, "FolderPath") != 0 ||
         Quen_isInstanceOf(object, "quen.io.FolderPath") != 0;
}

bool carriesParentTraversal(void* object, const char* text) {
  if (object != nullptr && Quen_getField_i64(object, "_hasParentTraversal") != 0) return true;
  return containsParentTraversalSegment(text);
}

bool containsParentTraversalSegment(const char* text) {
  if (text == nullptr) return false;

  std::string_view rest = text;
  for (;;) {
    const std::size_t end = rest.find_first_of("/\\");
    if (rest.substr(0, end) == "..") return true;
    if (end == std::string_view::npos) return false;
    rest.remove_prefix(end + 1);
  }
}

}  // namespace quen::io
