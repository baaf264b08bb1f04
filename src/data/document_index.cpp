// Atomic publication of a document index: written whole into a temporary file beside the target,
// then renamed over it. Atomic is not durable: nothing is forced to storage.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <system_error>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using namespace quen::io;

namespace {

// The number of the next temporary file, for all targets of the process. A number is used up even
// when its publication fails.
std::atomic<std::uint64_t> gAtomicDocumentIndexSequence{1};

fs::path nextTemporary(const fs::path& target) {
  const std::uint64_t number = gAtomicDocumentIndexSequence.fetch_add(1);
  fs::path temporary = target;
  temporary += ".tmp-" + std::to_string(number);
  return temporary;
}

void removeIfPossible(const fs::path& temporary) {
  std::error_code ignored;
  fs::remove(temporary, ignored);
}

// Removes the temporary before raising, so that it is gone when the exception is seen.
void abandon(const fs::path& temporary, const char* message) {
  removeIfPossible(temporary);
  raiseIOException(message);
}

// A std::filebuf allocates its buffer after it has created the file.
void create(std::ofstream& file, const fs::path& temporary) {
  try {
    file.open(temporary, std::ios::out | std::ios::binary | std::ios::trunc);
  } catch (const std::bad_alloc&) {
    removeIfPossible(temporary);
    throw;
  }
}

}  // namespace

void quen_data_internal_DocumentIndexStore__writeAtomic(const char* path, const char* content) {
  if (isEmpty(path) || content == nullptr) {
    raiseIOException("Document index path and content are required");
    return;
  }
  const fs::path target = Quen_runtimeFsPath(path);
  const fs::path temporary = nextTemporary(target);

  std::ofstream file;
  create(file, temporary);
  if (!file) {
    raiseIOException("Cannot create temporary document index");
    return;
  }
  file.write(content, static_cast<std::streamsize>(std::strlen(content)));
  file.flush();
  const bool written = file.good();
  file.close();  // Unchecked: the flush has written everything.
  if (!written) return abandon(temporary, "Cannot write temporary document index");

  std::error_code error;
  fs::rename(temporary, target, error);
  if (error) abandon(temporary, "Cannot atomically publish document index");
}
