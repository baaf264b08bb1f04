// Files that stay open across many calls, addressed by handles.
//
// Two kinds of locks, never nested: the registry's is held to find, insert or remove an entry, a
// writer's own for one write, flush or close. So a writer that hangs delays nobody else. Whoever
// works on a writer shares its ownership, and a close does not take it away from under them.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ios>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

namespace {

// As much as a stream's own buffer holds.
constexpr std::size_t kBuffer = 8'192;

// The stream has no buffer of its own: one would pass texts of 1,024 bytes and more on at once,
// each by a request of its own. Its error state is never cleared: a writer that failed once fails
// until it is closed. Its buffer is not zeroed.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct FileWriterState {
  std::mutex mutex;  // guards what follows
  std::ofstream stream;
  std::size_t waiting = 0;  // bytes in the buffer
  std::array<char, kBuffer> buffer;

  // Tries once more what could not be written, as a stream does with its own buffer.
  ~FileWriterState() {
    stream.rdbuf()->sputn(buffer.data(), static_cast<std::streamsize>(waiting));
  }

  void open(const std::string& path, std::ios::openmode mode) {
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(path, std::ios::out | std::ios::binary | mode);
  }

  // A text larger than the buffer is not kept back.
  void write(std::string_view text) {
    if (text.size() > kBuffer - waiting) flush();
    if (text.size() > kBuffer || !stream.is_open()) return put(text);
    if (!stream.good()) return;
    waiting += text.copy(buffer.data() + waiting, text.size());
  }

  // What cannot be written waits on.
  void flush() {
    put({buffer.data(), waiting});
    if (stream.good()) waiting = 0;
  }

 private:
  void put(std::string_view bytes) {
    if (bytes.empty()) return;
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
};

using FileWriter = std::shared_ptr<FileWriterState>;

using FileWriters = std::unordered_map<std::int64_t, FileWriter>;

// Guards gFileWriters. No file is touched and no writer's lock taken while it is held.
std::mutex gFileWriterRegistryMutex;

// Never destroyed, because other threads may still write while the process exits.
FileWriters& gFileWriters = *new FileWriters;

// Closes at exit the writers that nobody closed. Their failures go unnoticed.
const struct AtExit {
  ~AtExit() {
    FileWriters open;
    const std::lock_guard lock(gFileWriterRegistryMutex);
    open.swap(gFileWriters);
  }
} gAtExit;

// Moves on successful opens only, so that handles count them, and none is ever used again.
std::atomic<std::int64_t> gNextFileWriterHandle{1};

FileWriter fileWriterStateOrRaise(std::int64_t handle) {
  if (handle < 1) {
    raiseIOException("File writer is closed");
    return nullptr;
  }
  const std::lock_guard lock(gFileWriterRegistryMutex);
  const auto entry = gFileWriters.find(handle);
  if (entry == gFileWriters.end()) {
    raiseIOException("File writer is closed");
    return nullptr;
  }
  return entry->second;
}

// From here on no other call knows the handle. Empty when none did before.
FileWriter unregister(std::int64_t handle) {
  if (handle < 1) return nullptr;
  const std::lock_guard lock(gFileWriterRegistryMutex);
  const auto entry = gFileWriters.find(handle);
  if (entry == gFileWriters.end()) return nullptr;

  FileWriter writer = std::move(entry->second);
  gFileWriters.erase(entry);
  return writer;
}

}  // namespace

std::int64_t quen_io_FileWriter__openPath(const char* path, std::int32_t append) {
  if (!requirePath(path, "File path is empty")) return 0;

  const auto writer = std::make_shared_for_overwrite<FileWriterState>();
  writer->open(Quen_runtimeFsPath(path).native(), append != 0 ? std::ios::app : std::ios::trunc);
  if (!writer->stream) {
    raiseIOException("Cannot open file for writing");
    return 0;
  }
  const std::int64_t handle = gNextFileWriterHandle.fetch_add(1);
  const std::lock_guard lock(gFileWriterRegistryMutex);
  gFileWriters.try_emplace(handle, writer);
  return handle;
}

// The state is looked at also when there was nothing to write.
void quen_io_FileWriter__writeHandle(std::int64_t handle, const char* text) {
  const FileWriter writer = fileWriterStateOrRaise(handle);
  if (!writer) return;

  const std::lock_guard lock(writer->mutex);
  if (text != nullptr) writer->write(text);
  if (!writer->stream.good()) raiseIOException("Failed to write file");
}

void quen_io_FileWriter__flushHandle(std::int64_t handle) {
  const FileWriter writer = fileWriterStateOrRaise(handle);
  if (!writer) return;

  const std::lock_guard lock(writer->mutex);
  writer->flush();
  if (!writer->stream.good()) raiseIOException("Failed to flush file");
}

// The handle is gone whatever comes of it. A file that cannot be flushed is left to be closed with
// the last use of the writer.
void quen_io_FileWriter__closeHandle(std::int64_t handle) {
  const FileWriter writer = unregister(handle);
  if (!writer) return;

  const std::lock_guard lock(writer->mutex);
  writer->flush();
  if (!writer->stream.good()) {
    raiseIOException("Failed to flush file before closing");
    return;
  }
  writer->stream.close();
}
