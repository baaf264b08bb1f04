// Whole files as text that is checked to be UTF-8. Bytes are bytes: no byte-order mark is removed,
// no line ending converted, no NUL dropped.
//
// A file is read piece by piece, each copied and checked while the processor still has it at hand.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "contents/text.h"
#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

namespace {

// What a file is asked for at once. One that has less is never asked for its size, and the
// second-level cache holds a piece together with what is done with it.
constexpr std::size_t kPiece = 65'536;

// An open file that is read from its beginning to its end, which is also where the system fails to
// read it. Its own buffer is what the pieces are taken from, so that none is copied twice.
class Pieces : private std::filebuf {
 public:
  // Zeroing the buffer would take as long as reading a small file.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
  explicit Pieces(const std::filesystem::path& path) {
    setbuf(buffer_.bytes.data(), std::ssize(buffer_.bytes));
    open(path, std::ios::in | std::ios::binary);
  }

  bool isOpen() const { return is_open(); }

  // The bytes that follow, until the next call. Empty at the end.
  std::string_view next() {
    setg(eback(), egptr(), egptr());
    try {
      if (underflow() == traits_type::eof()) return {};
    } catch (const std::ios_base::failure&) {
      return {};
    }
    return {gptr(), egptr()};
  }

  // How many bytes the file says to have, after one whole piece of it, which stays as it is. 0 if
  // it does not know, as a pipe.
  std::size_t size() {
    const std::streamoff end = seekoff(0, std::ios::end, std::ios::in);
    seekpos(kPiece, std::ios::in);
    return static_cast<std::size_t>(std::max<std::streamoff>(end, 0));
  }

 private:
  // The system copies from the beginning of its pages to that of `bytes`, and from there a text is
  // copied to a little behind the beginning of a page: neither is one of the slow distances. The
  // stream leaves the last byte unused.
  struct alignas(4096) Buffer {
    std::array<char, 2 * kSlowDistances> spare;
    std::array<char, kPiece + 1> bytes;
  };

  Buffer buffer_;
};

}  // namespace

namespace quen::io {

// A read that fails ends the text like the end of the file: what was read until then is the text.
// That makes a directory an empty one.
FileText readTextFileOrRaise(const char* path) {
  if (!requirePath(path, "File path is empty")) return {};

  Pieces pieces(Quen_runtimeFsPath(path));
  if (!pieces.isOpen()) {
    raiseIOException("Cannot open file");
    return {};
  }
  FileText text;
  for (std::string_view piece = pieces.next(); !piece.empty(); piece = pieces.next()) {
    if (text.bytes.empty()) {
      const std::size_t size = piece.size() < kPiece ? 0 : pieces.size();
      text.bytes.reserve(std::max(size, piece.size()) + kSlowDistances);
    }
    text.bytes += piece;
    text.wellFormed = passWellFormed(text.bytes, text.wellFormed);
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
