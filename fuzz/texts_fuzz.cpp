// The validator, and every reader of texts, against plain models: bytes of the input as a file in
// memory.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "contents/utf8.h"
#include "fuzz/fuzz.h"
#include "quen/io/entry_points.h"
#include "tests/support/utf8_model.h"

using namespace quen::fuzz;
using namespace quen::small;
using quen::tests::firstFault;

namespace {

// A file of these bytes that has a path.
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

// What a reader gives for these bytes: themselves, or a message and nothing.
void requireReading(std::string_view what, void* string, const std::string& bytes,
                    const std::string& exception) {
  requireSame(what, raised(), exception);
  requireSame(what, stringBytes(string), exception.empty() ? bytes : "");
}

std::string faultOf(const std::string& words, const std::string& bytes) {
  const auto fault = firstFault(bytes);
  return fault ? words + std::to_string(*fault) : "";
}

// A character that the limit cuts goes, by its high bits alone.
std::string withoutTail(std::string prefix) {
  std::size_t lead = prefix.size();
  while (lead > 0 && (static_cast<unsigned char>(prefix[lead - 1]) & 0xC0) == 0x80) --lead;
  if (lead == 0) return prefix;
  const auto byte = static_cast<unsigned char>(prefix[lead - 1]);
  const std::size_t length = byte >= 0xF8   ? 0
                             : byte >= 0xF0 ? 4
                             : byte >= 0xE0 ? 3
                             : byte >= 0xC0 ? 2
                                            : 0;
  return prefix.size() - (lead - 1) < length ? prefix.substr(0, lead - 1) : prefix;
}

void examineInPieces(const std::string& bytes, std::size_t piece) {
  std::size_t passed = 0;
  for (std::size_t end = 0; end < bytes.size();) {
    end = std::min(bytes.size(), end + piece);
    passed = quen::io::passWellFormed(std::string_view(bytes).substr(0, end), passed);
  }
  std::uint64_t errorOffset = 1;
  const bool valid = quen::io::validateUtf8(bytes, errorOffset, passed);
  require(valid == !firstFault(bytes) && errorOffset == firstFault(bytes).value_or(0), "in pieces");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Scope scope;
  Input input(data, size);
  const std::size_t piece = 1 + std::size_t{input.byte()} * 3;
  const std::int64_t limit = 1 + std::int64_t{input.byte()} * 2;
  const std::string bytes = input.rest();
  const MemoryFile file(bytes);
  const std::string path = file.path();

  examineInPieces(bytes, piece);
  const std::string words = "IOException: File is not valid UTF-8 at byte ";
  requireReading("readAllText", quen_io_FileReader__readAllTextPath(path.c_str()), bytes,
                 faultOf(words, bytes));
  const std::string rest = bytes.substr(std::min(bytes.size(), static_cast<std::size_t>(limit)));
  requireReading("readTextFromOffset",
                 quen_io_FileInputStream__readTextFromOffsetPath(path.c_str(), limit), rest,
                 faultOf(words, bytes));
  const std::string prefix = withoutTail(bytes.substr(0, static_cast<std::size_t>(limit)));
  requireReading("readPrefix", quen_io_FileReader__readPrefixPath(path.c_str(), limit), prefix,
                 faultOf(words, prefix));

  const std::size_t nul = bytes.find('\0');
  const std::string toml = "quen.io.toml.TOMLParseException: ";
  requireReading(
      "readStrict", quen_io_toml_TOML__readStrictPath(path.c_str()), bytes,
      nul != std::string::npos
          ? toml + "Raw U+0000 is not allowed in TOML input at byte " + std::to_string(nul)
          : faultOf(toml + "TOML input is not valid UTF-8 at byte ", bytes));
  return 0;
}
