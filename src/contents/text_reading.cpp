// Whole files as text that is checked to be UTF-8. Bytes are bytes: no byte-order mark is removed,
// no line ending converted, no NUL dropped.
//
// A file is read straight into the text, and each chunk is validated while it is in the cache.

#include "contents/text_reading.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "contents/utf8.h"
#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "system/descriptor.h"
#include "system/huge_pages.h"

using namespace quen::io;

namespace {

// memcpy and the kernel's copy to user space suffer from 4 KiB aliasing when the target lies less
// than 32 bytes behind the source modulo 4096: some processors copy several times more slowly. Two
// blocks whose size is a multiple of 4 KiB, allocated in a row, lie 16 bytes apart modulo 4096,
// unless they have this much spare capacity.
constexpr std::size_t kAliasingDistance = 32;

// What a std::filebuf asks for. It is no multiple of 8, so that kernel files of records, such as
// /proc/self/pagemap, refuse it with EINVAL, as they refuse a filebuf. A file that is smaller is
// never asked for its size.
constexpr std::size_t kFirstRequest = 8'191;

// A chunk stays in the second-level cache from its reading to its validation.
constexpr std::size_t kChunkSize = 65'536;

// How much is reserved at most on the claim of the system alone: a sparse file claims up to 2^63-1
// bytes. Beyond that, memory grows with what was read.
constexpr std::size_t kMostClaimed = std::size_t{1} << 30;

// A text that grows by being read into. A std::string would zero the room for it first; the put
// area of a std::stringbuf is the spare capacity of its string as it is, and str() && hands the
// string out without a copy.
class GrowingText : private std::stringbuf {
 public:
  explicit GrowingText(std::size_t capacity) : std::stringbuf(withCapacity(capacity), kMode) {}

  std::string_view bytes() const { return {pbase(), pptr()}; }
  std::span<char> room() const { return {pptr(), epptr()}; }

  // The first bytes of the room have been written.
  void add(std::size_t count) { pbump(static_cast<int>(count)); }

  // A claim is no reason to fail: without the memory for it, the room is doubled.
  void makeRoom(std::size_t claimed) {
    std::string text = take();
    try {
      reserve(text, std::max(2 * text.size(), std::min(claimed, kMostClaimed)));
    } catch (const std::bad_alloc&) {
      reserve(text, 2 * text.size());
    }
    adviseHugePages({text.data(), text.capacity()});
    str(std::move(text));
  }

  std::string take() { return static_cast<std::stringbuf&&>(*this).str(); }

 private:
  static constexpr std::ios::openmode kMode = std::ios::out | std::ios::app;

  static std::string withCapacity(std::size_t capacity) {
    std::string text;
    reserve(text, capacity);
    return text;
  }
};

// Reads up to so many bytes more, and validates as far as possible. False at the end of the file.
bool readOn(const Descriptor& file, std::size_t most, GrowingText& text, std::size_t& wellFormed) {
  const std::span<char> room = text.room().first(std::min(most, text.room().size()));
  const std::size_t count = file.read(room).count;
  text.add(count);
  wellFormed = passWellFormed(text.bytes(), wellFormed);
  return count == room.size();
}

}  // namespace

namespace quen::io {

void reserve(std::string& text, std::size_t size) {
  text.reserve(size < text.max_size() - kAliasingDistance ? size + kAliasingDistance : size);
}

// A read that fails ends the text like the end of the file: what was read until then is the text.
// That makes a directory, which can be opened and not read, an empty one.
FileText readTextFileOrRaise(const char* path) {
  if (!requirePath(path, "File path is empty")) return {};

  const Descriptor file = Descriptor::openToRead(Quen_runtimeFsPath(path));
  if (!file.isOpen()) {
    raiseIOException("Cannot open file");
    return {};
  }
  GrowingText text(kFirstRequest);
  std::size_t wellFormed = 0;
  if (readOn(file, kFirstRequest, text, wellFormed)) {
    text.makeRoom(file.claimedSize());
    while (readOn(file, kChunkSize, text, wellFormed)) {
      if (text.room().empty()) text.makeRoom(0);
    }
  }
  return {text.take(), wellFormed};
}

std::string validUtf8OrRaise(FileText text) {
  std::uint64_t errorOffset = 0;
  if (validateUtf8(text.bytes, errorOffset, text.wellFormed)) return std::move(text.bytes);

  const std::string message = "File is not valid UTF-8 at byte " + std::to_string(errorOffset);
  raiseIOException(message.c_str());
  return {};
}

}  // namespace quen::io

namespace {

// Whether the read went well is asked of the runtime, so an exception that was pending before the
// call empties the text as well.
std::string readUtf8TextFileOrRaise(const char* path) {
  FileText text = readTextFileOrRaise(path);
  if (Quen_hasPendingError() != 0) return {};
  return validUtf8OrRaise(std::move(text));
}

}  // namespace

void* quen_io_FileReader__readAllTextPath(const char* path) {
  return Quen_allocString(readUtf8TextFileOrRaise(path));
}

// The cut may fall inside a character and is not moved: the offset counts bytes.
void* quen_io_FileInputStream__readTextFromOffsetPath(const char* path, std::int64_t offset) {
  std::string text = readUtf8TextFileOrRaise(path);
  const std::int64_t start = std::clamp<std::int64_t>(offset, 0, std::ssize(text));
  return Quen_allocString(text.erase(0, static_cast<std::size_t>(start)));
}
