// Every text reader in both forms, on a file in memory (memfd_create) with the bytes of the input;
// and the validator, which gets the same bytes in chunks, against the table of well-formed byte
// sequences (Unicode, table 3-7).

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "contents/utf8.h"
#include "fuzz/fuzz.h"
#include "fuzz/judged.h"
#include "tests/support/utf8_model.h"

using namespace quen::differential;
using namespace quen::fuzz;
using quen::tests::firstFault;

namespace {

// A file in memory with a path.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& bytes) : file_(memfd_create("fuzz", MFD_CLOEXEC)) {
    require(::write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "write");
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_;
};

void validateInChunks(const std::string& bytes, std::size_t chunkSize) {
  std::size_t passed = 0;
  for (std::size_t end = 0; end < bytes.size();) {
    end = std::min(bytes.size(), end + chunkSize);
    passed = quen::io::passWellFormed(std::string_view(bytes).substr(0, end), passed);
  }
  std::uint64_t errorOffset = 1;
  const bool valid = quen::io::validateUtf8(bytes, errorOffset, passed);
  require(valid == !firstFault(bytes) && errorOffset == firstFault(bytes).value_or(0), "in chunks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t chunkSize = 1 + std::size_t{input.byte()} * 3;
  const std::int64_t limit = 1 + std::int64_t{input.byte()} * 2;
  const std::string bytes = input.rest();
  const MemoryFile file(bytes);
  const Argument path = text(file.path());

  validateInChunks(bytes, chunkSize);
  requireSameCall("quen_io_FileReader__readAllTextPath", {path});
  requireSameCall("quen_io_FileInputStream__readTextFromOffsetPath", {path, number(limit)});
  requireSameCall("quen_io_FileReader__readPrefixPath", {path, number(limit)});
  requireSameCall("quen_io_toml_TOML__readStrictPath", {path});
  return 0;
}
