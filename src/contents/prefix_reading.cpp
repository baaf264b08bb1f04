// The beginning of a file as text, to detect its format or to preview a large file. A character
// that the limit cuts in two is left out whole instead of being reported.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "contents/text_reading.h"
#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "system/descriptor.h"

using namespace quen::io;

namespace {

// How much memory is zeroed before it is read into.
constexpr std::size_t kChunkSize = 65'536;

// The length of the sequence that a lead byte announces, by its high bits alone: looser than the
// validator on purpose, so that a truncated C0 or F5 is dropped silently, too. 0 for a byte that is
// no lead.
std::size_t announcedLength(unsigned char byte) {
  if ((byte & 0xE0u) == 0xC0u) return 2;
  if ((byte & 0xF0u) == 0xE0u) return 3;
  if ((byte & 0xF8u) == 0xF0u) return 4;
  return 0;
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u; }

// A tail with more continuation bytes than its lead announces stays: the validator reports it.
void dropIncompleteTail(std::string& text) {
  if (text.empty()) return;

  std::size_t lead = text.size() - 1;
  while (lead > 0 && isContinuation(text[lead])) --lead;
  if (text.size() - lead < announcedLength(static_cast<unsigned char>(text[lead]))) {
    text.resize(lead);
  }
}

// Reads up to `limit` bytes, or to the end of the file; false when the system fails to read. Memory
// is reserved for all of them at once, and zeroed chunk by chunk: of a large limit, a small file
// touches little.
bool readUpTo(std::size_t limit, const Descriptor& file, std::string& text) {
  reserve(text, limit);
  while (text.size() < limit) {
    const std::size_t before = text.size();
    text.resize(std::min(limit, before + kChunkSize));
    const std::size_t wanted = text.size() - before;
    const auto [count, failed] = file.read({text.data() + before, wanted});
    if (failed) return false;
    text.resize(before + count);
    if (count < wanted) break;
  }
  return true;
}

std::string readTextFilePrefixOrRaise(const char* path, std::int64_t limit) {
  if (!requirePath(path, "File path is empty")) return {};
  if (limit <= 0) return {};

  const Descriptor file = Descriptor::openToRead(Quen_runtimeFsPath(path));
  if (!file.isOpen()) {
    raiseIOException("Cannot open file");
    return {};
  }
  std::string prefix;
  if (!readUpTo(memorySize(limit), file, prefix)) {
    raiseIOException("Failed to read file");
    return {};
  }
  dropIncompleteTail(prefix);
  return validUtf8OrRaise({std::move(prefix)});
}

}  // namespace

void* quen_io_FileReader__readPrefixPath(const char* path, std::int64_t limit) {
  return Quen_allocString(readTextFilePrefixOrRaise(path, limit));
}
