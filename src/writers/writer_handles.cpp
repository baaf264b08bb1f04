// Files that stay open across many calls, addressed by handles.
//
// The registry and each writer have a lock, and the two are never nested. A writer's lock is held
// during its I/O, so a write that blocks does not delay other writers.

#include <cstdint>
#include <memory>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "system/fork.h"
#include "writers/file_writer.h"
#include "writers/file_writer_registry.h"

using namespace quen::io;

namespace {

using Registry = FileWriterRegistry<FileWriter>;

// Never destroyed, because other threads may still write while the process exits.
Registry& gFileWriters = *new Registry;

// Closes the writers that are still open at exit; failures are ignored. A writer that another
// thread is using is closed when that thread releases its shared ownership.
const struct AtExit {
  AtExit() {
    aroundForks([] { gFileWriters.beforeFork(); }, [] { gFileWriters.afterForkInParent(); },
                [] { gFileWriters.afterForkInChild(); });
  }
  ~AtExit() { gFileWriters.takeAll(); }
} gAtExit;

}  // namespace

// Only a successful open consumes a handle number.
std::int64_t quen_io_FileWriter__openPath(const char* path, std::int32_t append) {
  if (!requirePath(path, "File path is empty")) return 0;

  auto writer = FileWriter::open(Quen_runtimeFsPath(path), append != 0);
  if (writer == nullptr) {
    raiseIOException("Cannot open file for writing");
    return 0;
  }
  return gFileWriters.add(std::move(writer));
}

void quen_io_FileWriter__writeHandle(std::int64_t handle, const char* text) {
  const auto writer = gFileWriters.findOrRaise(handle);
  if (writer != nullptr) writer->writeOrRaise(text);
}

void quen_io_FileWriter__flushHandle(std::int64_t handle) {
  const auto writer = gFileWriters.findOrRaise(handle);
  if (writer != nullptr) writer->flushOrRaise();
}

// The handle is removed even if the flush fails; then the file is closed when the last shared owner
// of its writer is destroyed.
void quen_io_FileWriter__closeHandle(std::int64_t handle) {
  const auto writer = gFileWriters.remove(handle);
  if (writer != nullptr) writer->closeOrRaise();
}
