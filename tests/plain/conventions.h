// The plain form: a reference implementation of every entry point with std::fstream and
// std::filesystem, without buffers or fast paths of its own. It exports the same symbols as the
// module and links to any runtime. Its results are the expected results of the module.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace quen::plain {

bool isEmpty(const char* text);

void raiseIOException(const char* message);

// Raises a TypeError with the runtime's error text, or "Expected Byte[]" if there is none.
void raiseTypeError(const std::string& error);

// Tests for the short class name first, and for the qualified one only if that fails.
bool isFolder(void* object);

// Whether a segment between slashes or backslashes is exactly "..".
bool containsParentTraversalSegment(const char* text);

// The object's own flag if it is set; otherwise whether the text has a ".." segment.
bool carriesParentTraversal(void* object, const char* text);

// Validates in one forward pass. `errorOffset` is the offset of the first fault, 0 if there is
// none.
bool validateUtf8(const std::string& text, std::uint64_t& errorOffset);

// All bytes of a file; "" after raising.
std::string readTextFileOrRaise(const char* path);

}  // namespace quen::plain
