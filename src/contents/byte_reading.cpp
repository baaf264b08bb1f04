// Bytes of a file at a position, into a Byte[] of the caller. Each call opens and closes the file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "system/descriptor.h"

using namespace quen::io;

// A count below 1 asks for nothing, so the path is not checked; the destination is checked only
// when bytes were read for it.
std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t position,
                                                    void* destination, std::int64_t count) {
  if (count < 1) return 0;
  if (!requirePath(path, "File path is empty")) return 0;

  const Descriptor file = Descriptor::openToRead(Quen_runtimeFsPath(path));
  if (!file.isOpen()) {
    raiseIOException("Cannot open file");
    return 0;
  }
  if (!file.seek(std::max<std::int64_t>(position, 0))) {
    raiseIOException("Cannot seek in file");
    return 0;
  }
  const std::size_t size = memorySize(count);
  const auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(size);
  const auto [stored, failed] = file.read({reinterpret_cast<char*>(bytes.get()), size});
  if (failed) {
    raiseIOException("Failed to read file");
    return 0;
  }
  if (stored == 0) return 0;

  std::string error;
  if (!Quen_writeByteArrayData(destination, bytes.get(), stored, error)) {
    raiseTypeError(error);
    return 0;
  }
  return static_cast<std::int64_t>(stored);
}
