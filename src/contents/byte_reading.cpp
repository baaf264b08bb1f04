// Bytes of a file at a position of the caller's choice, into a Byte[] of the caller's. The file is
// opened anew for each call.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "contents/unbuffered_file.h"
#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

// A count below 1 asks for nothing, so not even the path is looked at; and the destination is
// looked at only when there is something to put into it.
std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t position,
                                                    void* destination, std::int64_t count) {
  if (count < 1) return 0;
  if (!requirePath(path, "File path is empty")) return 0;

  UnbufferedFile file(Quen_runtimeFsPath(path));
  if (!file.isOpen()) {
    raiseIOException("Cannot open file");
    return 0;
  }
  if (!file.seek(std::max<std::int64_t>(position, 0))) {
    raiseIOException("Cannot seek in file");
    return 0;
  }
  const auto bytes =
      std::make_unique_for_overwrite<std::uint8_t[]>(static_cast<std::size_t>(count));
  const std::optional<std::size_t> delivered =
      file.read(reinterpret_cast<char*>(bytes.get()), count);
  if (!delivered) {
    raiseIOException("Failed to read file");
    return 0;
  }
  if (*delivered == 0) return 0;

  std::string error;
  if (!Quen_writeByteArrayData(destination, bytes.get(), *delivered, error)) {
    raiseTypeError(error);
    return 0;
  }
  return static_cast<std::int64_t>(*delivered);
}
