#include "tests/plain/conventions.h"

#include "quen/io/operations.h"

namespace quen::plain {

bool isEmpty(const char* text) { return text == nullptr || text[0] == '\0'; }

void raiseIOException(const char* message) { Quen_raise("IOException", message); }

void raiseTypeError(const std::string& error) {
  Quen_raise("TypeError", error.empty() ? "Expected Byte[]" : error.c_str());
}

bool isFolder(void* object) {
  if (Quen_isInstanceOf(object, "FolderPath") != 0) return true;
  return Quen_isInstanceOf(object, "quen.io.FolderPath") != 0;
}

bool containsParentTraversalSegment(const char* text) {
  if (text == nullptr) return false;

  std::string segment;
  for (const char* byte = text;; ++byte) {
    const bool endsSegment = *byte == '/' || *byte == '\\' || *byte == '\0';
    if (!endsSegment) {
      segment += *byte;
      continue;
    }
    if (segment == "..") return true;
    if (*byte == '\0') return false;
    segment.clear();
  }
}

bool carriesParentTraversal(void* object, const char* text) {
  if (object != nullptr && Quen_getField_i64(object, "_hasParentTraversal") != 0) return true;
  return containsParentTraversalSegment(text);
}

}  // namespace quen::plain
