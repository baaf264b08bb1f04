// Files that stay open across calls: a registry of streams with a lock; each stream has its own
// lock.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <ios>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "tests/plain/conventions.h"

using namespace quen::plain;

namespace {

struct FileWriterState {
  std::mutex mutex;
  std::ofstream stream;
};

using FileWriter = std::shared_ptr<FileWriterState>;

// Destroyed at exit, which closes the writers that are still open.
std::unordered_map<std::int64_t, FileWriter> gFileWriters;
std::mutex gFileWriterRegistryMutex;  // guards gFileWriters
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

}  // namespace

std::int64_t quen_io_FileWriter__openPath(const char* path, std::int32_t append) {
  if (isEmpty(path)) {
    raiseIOException("File path is empty");
    return 0;
  }
  const auto writer = std::make_shared<FileWriterState>();
  const std::ios::openmode mode = append != 0 ? std::ios::app : std::ios::trunc;
  writer->stream.open(Quen_runtimeFsPath(path).native(), std::ios::out | std::ios::binary | mode);
  if (!writer->stream) {
    raiseIOException("Cannot open file for writing");
    return 0;
  }
  const std::int64_t handle = gNextFileWriterHandle.fetch_add(1);
  const std::lock_guard lock(gFileWriterRegistryMutex);
  gFileWriters.try_emplace(handle, writer);
  return handle;
}

void quen_io_FileWriter__writeHandle(std::int64_t handle, const char* text) {
  const FileWriter writer = fileWriterStateOrRaise(handle);
  if (!writer) return;
  const std::lock_guard lock(writer->mutex);
  if (text != nullptr) writer->stream.write(text, static_cast<std::streamsize>(std::strlen(text)));
  if (!writer->stream.good()) raiseIOException("Failed to write file");
}

void quen_io_FileWriter__flushHandle(std::int64_t handle) {
  const FileWriter writer = fileWriterStateOrRaise(handle);
  if (!writer) return;
  const std::lock_guard lock(writer->mutex);
  writer->stream.flush();
  if (!writer->stream.good()) raiseIOException("Failed to flush file");
}

void quen_io_FileWriter__closeHandle(std::int64_t handle) {
  if (handle < 1) return;
  FileWriter writer;
  {
    const std::lock_guard lock(gFileWriterRegistryMutex);
    const auto entry = gFileWriters.find(handle);
    if (entry == gFileWriters.end()) return;
    writer = std::move(entry->second);
    gFileWriters.erase(entry);
  }
  const std::lock_guard lock(writer->mutex);
  writer->stream.flush();
  if (!writer->stream.good()) return raiseIOException("Failed to flush file before closing");
  writer->stream.close();
}
