#include "writers/file_writer.h"

#include <algorithm>
#include <utility>

#include "conventions.h"
#include "system/cancellation.h"

namespace quen::io {

std::shared_ptr<FileWriter> FileWriter::open(const std::filesystem::path& path, bool append) {
  auto writer = std::make_shared_for_overwrite<FileWriter>();
  writer->file_ = append ? Descriptor::openToAppend(path) : Descriptor::openToReplace(path);
  return writer->file_.isOpen() ? std::move(writer) : nullptr;
}

// write(2) is a cancellation point (pthreads(7)), and a forced unwind must not leave a destructor,
// which is noexcept.
FileWriter::~FileWriter() {
  const WithoutCancellation protect;
  file_.write({buffer_.data(), waiting_});
}

void FileWriter::writeOrRaise(const char* text) {
  const std::lock_guard lock(mutex_);
  if (text != nullptr) write(text);
  if (failed_) raiseIOException("Failed to write file");
}

void FileWriter::flushOrRaise() {
  const std::lock_guard lock(mutex_);
  flush();
  if (failed_) raiseIOException("Failed to flush file");
}

// A failed close is reported to another thread whose write or flush had already looked up the
// writer.
void FileWriter::closeOrRaise() {
  const std::lock_guard lock(mutex_);
  flush();
  if (failed_) return raiseIOException("Failed to flush file before closing");
  failed_ = !file_.close();
}

// If another thread has just closed the file, write(2) on the closed descriptor fails with EBADF.
void FileWriter::write(std::string_view text) {
  if (text.size() > kBufferSize - waiting_) flush();
  if (failed_) return;
  if (text.size() > kBufferSize || !file_.isOpen()) {
    failed_ = file_.write(text).failed;
  } else {
    waiting_ += text.copy(buffer_.data() + waiting_, text.size());
  }
}

// Bytes that were not written move to the front of the buffer; the destructor tries them once more.
void FileWriter::flush() {
  if (failed_) return;
  const auto [count, failed] = file_.write({buffer_.data(), waiting_});
  std::copy(buffer_.data() + count, buffer_.data() + waiting_, buffer_.data());
  waiting_ -= count;
  failed_ = failed;
}

}  // namespace quen::io
