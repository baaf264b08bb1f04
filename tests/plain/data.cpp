// Structured documents: the strict TOML input check, and atomic publication.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>
#include <system_error>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "tests/plain/conventions.h"

namespace fs = std::filesystem;
using namespace quen::plain;

namespace {

std::atomic<std::uint64_t> gAtomicDocumentIndexSequence{1};

void* refuse(const std::string& fault, std::uint64_t offset) {
  const std::string message = fault + " at byte " + std::to_string(offset);
  Quen_raise("quen.io.toml.TOMLParseException", message.c_str());
  return Quen_allocString("");
}

void removeAndRaise(const fs::path& temporary, const char* message) {
  std::error_code ignored;
  fs::remove(temporary, ignored);
  raiseIOException(message);
}

}  // namespace

void* quen_io_toml_TOML__readStrictPath(const char* path) {
  const std::string text = readTextFileOrRaise(path);
  const std::size_t nul = text.find('\0');
  if (nul != std::string::npos) return refuse("Raw U+0000 is not allowed in TOML input", nul);

  std::uint64_t errorOffset = 0;
  if (!validateUtf8(text, errorOffset)) return refuse("TOML input is not valid UTF-8", errorOffset);
  return Quen_allocString(text);
}

void quen_data_internal_DocumentIndexStore__writeAtomic(const char* path, const char* content) {
  if (isEmpty(path) || content == nullptr) {
    return raiseIOException("Document index path and content are required");
  }
  const fs::path target = Quen_runtimeFsPath(path);
  const std::uint64_t number = gAtomicDocumentIndexSequence.fetch_add(1);
  fs::path temporary = target;
  temporary += ".tmp-" + std::to_string(number);

  std::ofstream file(temporary, std::ios::out | std::ios::binary | std::ios::trunc);
  if (!file) return raiseIOException("Cannot create temporary document index");
  file.write(content, static_cast<std::streamsize>(std::strlen(content)));
  file.flush();
  if (!file.good()) {
    file.close();
    return removeAndRaise(temporary, "Cannot write temporary document index");
  }
  file.close();

  std::error_code error;
  fs::rename(temporary, target, error);
  if (error) removeAndRaise(temporary, "Cannot atomically publish document index");
}
