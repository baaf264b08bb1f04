#include "driver/files.h"

#include <algorithm>
#include <cstdint>

#include "driver/reasons.h"
#include "driver/text.h"
#include "driver/values.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

// The size is only a hint: a file may grow, and those of /proc have size 0.
std::string readFile(const std::string& path) {
  if (!quen_io_FileInputStream__isRegularPath(path.c_str())) {
    throw UsageError("no regular file " + inQuotes(path));
  }
  const std::int64_t size = quen_io_FileInputStream__sizePath(path.c_str());
  const std::int64_t portion = std::max<std::int64_t>(size, 4096);

  std::string contents;
  for (;;) {
    if (std::max(size, static_cast<std::int64_t>(contents.size())) > kMostBytes) {
      throw UsageError("more than " + std::to_string(kMostBytes) + " bytes in " + inQuotes(path));
    }
    const small::Scope scope;
    void* buffer = small::newByteArray(static_cast<std::size_t>(portion));
    const auto position = static_cast<std::int64_t>(contents.size());
    const std::int64_t count =
        quen_io_FileInputStream__readBytesPath(path.c_str(), position, buffer, portion);
    if (const auto raised = small::takeException()) {
      throw UsageError("cannot read " + inQuotes(path) + ": " + escaped(raised->message) +
                       readingReason(path));
    }
    if (count == 0) return contents;
    const std::vector<std::uint8_t> bytes = small::byteArrayContents(buffer);
    contents.append(bytes.begin(), bytes.begin() + count);
  }
}

}  // namespace quen::driver
