// The conventions that all entry points share.

#include "conventions.h"

#include <cstring>

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

// Searches for two dots first, since few paths contain them.
bool containsParentTraversalSegment(const char* text) {
  if (text == nullptr) return false;

  const auto endsSegment = [](char byte) { return byte == '/' || byte == '\\' || byte == '\0'; };
  for (const char* dots = text; (dots = std::strstr(dots, "..")) != nullptr; ++dots) {
    if ((dots == text || endsSegment(dots[-1])) && endsSegment(dots[2])) return true;
  }
  return false;
}

}  // namespace quen::io
