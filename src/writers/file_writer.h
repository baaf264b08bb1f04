// A file that stays open for buffered writing. Private to the module.
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string_view>

#include "system/descriptor.h"

namespace quen::io {

// Texts are buffered until the buffer is full, flushed or closed; a text larger than the buffer is
// written directly. Failure is sticky: after one, every operation raises.
//
// Each writer has its own lock, which is held during a write, flush or close, and while its failure
// is raised.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
class FileWriter {
 public:
  // Null when the file cannot be opened.
  static std::shared_ptr<FileWriter> open(const std::filesystem::path& path, bool append);

  // For open() only. No file is open yet, and the buffer is uninitialized.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
  FileWriter() = default;

  // Writes the buffered bytes and closes. Failures are ignored.
  ~FileWriter();

  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Raises IOException "Failed to write file". Also reports an earlier failure if the text is null.
  void writeOrRaise(const char* text);

  // Raises IOException "Failed to flush file".
  void flushOrRaise();

  // Raises IOException "Failed to flush file before closing", and leaves the file open then. A
  // failure of the close itself is not reported.
  void closeOrRaise();

 private:
  // The buffer size of std::filebuf in libstdc++ (BUFSIZ).
  static constexpr std::size_t kBufferSize = 8'192;

  void write(std::string_view text);
  void flush();

  std::mutex mutex_;  // guards what follows
  Descriptor file_;
  bool failed_ = false;
  std::size_t waiting_ = 0;  // number of buffered bytes
  std::array<char, kBufferSize> buffer_;
};

}  // namespace quen::io
