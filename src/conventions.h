// The conventions that all entry points share: the empty path, raising, and the flags that a
// derived path object inherits. Private to the module.
#pragma once

#include <string>

namespace quen::io {

// Whether a text is null or "".
bool isEmpty(const char* text);

// Makes an IOException pending. A call raises at most once; its entry point returns right after.
void raiseIOException(const char* message);

// Makes a TypeError pending with the runtime's error text about a Byte[], or with "Expected
// Byte[]" when it is empty.
void raiseTypeError(const std::string& words);

// Whether there is a path to work on; false after raising an IOException with the message.
bool requirePath(const char* text, const char* message);

// Whether the object, which may be null, is a FolderPath. Asks the short class name and, after a
// no, the qualified one.
bool isFolder(void* object);

// Whether a ".." took part in making the object, which may be null, or is a segment of its text.
bool carriesParentTraversal(void* object, const char* text);

// Whether a segment of the text is exactly "..". Slash and backslash both separate segments, on
// every host. Null text has no segments.
bool containsParentTraversalSegment(const char* text);

}  // namespace quen::io
