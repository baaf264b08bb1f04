// Whole files as text that is checked to be UTF-8. Bytes are bytes: no byte-order mark is removed,
// no line ending converted, no NUL dropped.
//
// A file is read straight to where its text will stay, in pieces that are checked while the
// processor still has them at hand.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <string>
#include <utility>

#include "contents/text.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/conventions.h"

using namespace quen::io;

namespace {

// What a file is asked for first. A file that has no more is never asked for its size, and of a
// larger one only this much is copied, out of the buffer of the stream.
constexpr std::size_t kFirstPiece = 4 * 1024;

// Fits into the second-level cache together with what is done with it.
constexpr std::size_t kPiece = 128 * 1024;

// An open file that is read from its beginning. Where the system fails to read, it ends.
class Source {
 public:
  explicit Source(const std::filesystem::path& path) {
    file_.pubsetbuf(buffer_.data(), std::ssize(buffer_));
    file_.open(path, std::ios::in | std::ios::binary);
  }

  bool isOpen() const { return file_.is_open(); }

  // How many bytes are at hand, after one request when none were. 0 at the end.
  std::size_t ready() {
    try {
      if (failed_ || file_.sgetc() == std::filebuf::traits_type::eof()) return 0;
    } catch (const std::ios_base::failure&) {
      return 0;
    }
    return static_cast<std::size_t>(file_.in_avail());
  }

  // How many bytes follow those that were read, as far as the file knows: 0 for a pipe. None may be
  // at hand.
  std::size_t rest() {
    const std::streamoff size = file_.pubseekoff(0, std::ios::end, std::ios::in);
    if (size <= offset_) return 0;
    file_.pubseekpos(offset_, std::ios::in);
    return static_cast<std::size_t>(size - offset_);
  }

  // Reads until there are `length` bytes or no more, and gives their number.
  std::size_t read(char* bytes, std::size_t length) {
    const std::streamoff before = offset_;
    try {
      offset_ += file_.sgetn(bytes, static_cast<std::streamsize>(length));
    } catch (const std::ios_base::failure&) {
      failed_ = true;  // behind what the system did deliver
      offset_ = std::max(offset_, std::streamoff{file_.pubseekoff(0, std::ios::cur, std::ios::in)});
    }
    return static_cast<std::size_t>(offset_ - before);
  }

 private:
  // The stream leaves the last byte unused.
  alignas(kSlowDistances) std::array<char, kFirstPiece + 1> buffer_;
  std::filebuf file_;
  std::streamoff offset_ = 0;
  bool failed_ = false;
};

// Whether the system, which copies from the beginning of pages of its own, would copy to there at
// one of the slow distances. Large blocks of memory usually begin 16 bytes into a page.
bool isSlowTarget(const char* bytes) {
  constexpr std::uintptr_t kPage = 4096;
  const std::uintptr_t distance = reinterpret_cast<std::uintptr_t>(bytes) % kPage;
  return distance > 0 && distance < kSlowDistances;
}

// Reads to where reading is fast, and moves what was read into place while it is in the cache.
std::size_t readFast(Source& source, char* bytes, std::size_t length) {
  if (!isSlowTarget(bytes)) return source.read(bytes, length);
  const std::size_t delivered = source.read(bytes + kSlowDistances, length);
  std::memmove(bytes, bytes + kSlowDistances, delivered);
  return delivered;
}

// Appends up to `length` bytes to the text. False when there were fewer.
bool append(FileText& text, Source& source, std::size_t length) {
  const std::size_t before = text.bytes.size();
  text.bytes.resize_and_overwrite(before + length + kSlowDistances, [&](char* bytes, std::size_t) {
    return before + readFast(source, bytes + before, length);
  });
  text.wellFormed = passWellFormed(text.bytes, text.wellFormed);
  return text.bytes.size() == before + length;
}

// Reads what the file says is still to come. It may be more or less by the time.
void appendRest(FileText& text, Source& source) {
  const std::size_t size = text.bytes.size() + source.rest();
  text.bytes.reserve(size + kSlowDistances);
  while (text.bytes.size() < size &&
         append(text, source, std::min(kPiece, size - text.bytes.size()))) {
  }
}

}  // namespace

namespace quen::io {

// A read that fails ends the text like the end of the file: what was read until then is the text.
// That makes a directory an empty one.
FileText readTextFileOrRaise(const char* path) {
  if (!requirePath(path, "File path is empty")) return {};

  Source source(Quen_runtimeFsPath(path));
  if (!source.isOpen()) {
    raiseIOException("Cannot open file");
    return {};
  }
  FileText text;
  text.bytes.reserve(kFirstPiece + kSlowDistances);
  while (const std::size_t ready = source.ready()) {
    append(text, source, ready);
    if (ready == kFirstPiece) appendRest(text, source);
  }
  return text;
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
