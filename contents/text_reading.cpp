// Whole files as text that is checked to be UTF-8. Bytes are bytes: no byte-order mark is removed,
// no line ending converted, no NUL dropped.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "contents/text.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/conventions.h"

using namespace quen::io;

namespace quen::io {

namespace {

std::string failWith(const char* message) {
  raiseIOException(message);
  return {};
}

}  // namespace

// Only the file's own stream is asked how it went. An insertion that copies nothing (an empty file)
// or that stops short (a directory, a read error) is noted by the string stream alone, so what was
// read until then is the text.
std::string readTextFileOrRaise(const char* path) {
  if (!requirePath(path, "File path is empty")) return {};

  std::ifstream file(Quen_runtimeFsPath(path), std::ios::in | std::ios::binary);
  if (!file) return failWith("Cannot open file");

  std::ostringstream text;
  text << file.rdbuf();
  if (!file.good() && !file.eof()) return failWith("Failed to read file");
  return std::move(text).str();
}

std::string validUtf8OrRaise(std::string text) {
  std::uint64_t errorOffset = 0;
  if (validateUtf8(text, errorOffset)) return text;

  const std::string message = "File is not valid UTF-8 at byte " + std::to_string(errorOffset);
  return failWith(message.c_str());
}

}  // namespace quen::io

namespace {

// Whether the read went well is asked of the runtime, so an exception that was pending before the
// call empties the text as well.
std::string readUtf8TextFileOrRaise(const char* path) {
  std::string text = readTextFileOrRaise(path);
  if (Quen_hasPendingError() != 0) return {};
  return validUtf8OrRaise(std::move(text));
}

}  // namespace

void* quen_io_FileReader__readAllTextPath(const char* path) {
  return Quen_allocString(readUtf8TextFileOrRaise(path));
}

// The cut may fall inside a character and is not moved: the offset counts bytes.
void* quen_io_FileInputStream__readTextFromOffsetPath(const char* path, std::int64_t offset) {
  const std::string text = readUtf8TextFileOrRaise(path);
  if (offset <= 0) return Quen_allocString(text);
  if (static_cast<std::uint64_t>(offset) >= text.size()) return Quen_allocString("");
  return Quen_allocString(text.substr(static_cast<std::size_t>(offset)));
}
