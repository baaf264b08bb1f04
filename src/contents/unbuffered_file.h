// A file that is read by exactly the bytes that are asked for, straight to where they are wanted. A
// whole input stream would cost as much again as opening the file. Private to contents/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>

namespace quen::io {

class UnbufferedFile {
 public:
  explicit UnbufferedFile(const std::filesystem::path& path) {
    file_.pubsetbuf(nullptr, 0);
    file_.open(path, std::ios::in | std::ios::binary);
  }

  bool isOpen() const { return file_.is_open(); }

  // Whether the next byte to be read is the one at this offset, which may lie behind the last.
  bool seek(std::int64_t offset) {
    return std::streamoff{file_.pubseekpos(offset, std::ios::in)} == offset;
  }

  // Reads until there are `count` bytes or no more, and gives their number; none when the system
  // fails to read.
  std::optional<std::size_t> read(char* bytes, std::int64_t count) {
    try {
      return static_cast<std::size_t>(file_.sgetn(bytes, count));
    } catch (const std::ios_base::failure&) {
      return std::nullopt;
    }
  }

 private:
  std::filebuf file_;
};

}  // namespace quen::io
