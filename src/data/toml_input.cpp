// What TOML requires of a document's bytes: UTF-8, and no raw U+0000. Byte-order marks and other
// control characters are left to the parser. Its users see one class of exception for all malformed
// input.

#include <cstdint>
#include <string>

#include "contents/text_reading.h"
#include "contents/utf8.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

namespace {

void* refuse(const char* fault, std::uint64_t offset) {
  const std::string message = fault + (" at byte " + std::to_string(offset));
  Quen_raise("quen.io.toml.TOMLParseException", message.c_str());
  return Quen_allocString("");
}

}  // namespace

// A raw U+0000 anywhere comes before an invalid sequence anywhere: it is valid UTF-8 and would not
// be found otherwise. A file that could not be read is empty here, its exception pending already.
void* quen_io_toml_TOML__readStrictPath(const char* path) {
  const FileText text = readTextFileOrRaise(path);

  const std::size_t nul = text.bytes.find('\0');
  if (nul != std::string::npos) return refuse("Raw U+0000 is not allowed in TOML input", nul);

  std::uint64_t errorOffset = 0;
  if (!validateUtf8(text.bytes, errorOffset, text.wellFormed)) {
    return refuse("TOML input is not valid UTF-8", errorOffset);
  }
  return Quen_allocString(text.bytes);
}
