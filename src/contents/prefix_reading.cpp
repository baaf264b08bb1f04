// The beginning of a file as text, for whoever sniffs a header or previews a large file. A
// character that the limit cuts in two is left out whole instead of being reported.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "contents/text.h"
#include "contents/unbuffered_file.h"
#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

namespace {

// How long a sequence the byte announces, by its high bits alone: looser than the validator on
// purpose, so that a cut-off C0 or F5 goes silently, too. 0 for a byte that announces nothing.
std::size_t announcedLength(unsigned char byte) {
  if ((byte & 0xE0u) == 0xC0u) return 2;
  if ((byte & 0xF0u) == 0xE0u) return 3;
  if ((byte & 0xF8u) == 0xF0u) return 4;
  return 0;
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u; }

// A tail with more continuation bytes than its lead asks for stays: the validator reports it.
void dropIncompleteTail(std::string& text) {
  if (text.empty()) return;

  std::size_t lead = text.size() - 1;
  while (lead > 0 && isContinuation(text[lead])) --lead;
  if (text.size() - lead < announcedLength(static_cast<unsigned char>(text[lead]))) {
    text.resize(lead);
  }
}

std::string readTextFilePrefixOrRaise(const char* path, std::int64_t limit) {
  if (!requirePath(path, "File path is empty")) return {};
  if (limit <= 0) return {};

  UnbufferedFile file(Quen_runtimeFsPath(path));
  if (!file.isOpen()) {
    raiseIOException("Cannot open file");
    return {};
  }
  const auto bytes =
      std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(limit) + kSlowDistances);
  const std::optional<std::size_t> delivered = file.read(bytes.get(), limit);
  if (!delivered) {
    raiseIOException("Failed to read file");
    return {};
  }
  std::string prefix;
  prefix.reserve(*delivered + kSlowDistances);
  prefix.assign(bytes.get(), *delivered);
  dropIncompleteTail(prefix);
  return validUtf8OrRaise({std::move(prefix)});
}

}  // namespace

void* quen_io_FileReader__readPrefixPath(const char* path, std::int64_t limit) {
  return Quen_allocString(readTextFilePrefixOrRaise(path, limit));
}
