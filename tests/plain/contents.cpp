// One call, one file: texts, prefixes, byte ranges, and one-shot writing.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "tests/plain/conventions.h"

using namespace quen::plain;

namespace {

constexpr std::ios::openmode kRead = std::ios::in | std::ios::binary;
constexpr std::ios::openmode kReplace = std::ios::out | std::ios::trunc | std::ios::binary;
constexpr std::ios::openmode kAppend = std::ios::out | std::ios::app | std::ios::binary;

// A lead byte determines the length of the sequence, the first bits of the code point, and the
// smallest code point that needs this length (smaller ones are overlong encodings).
struct Lead {
  std::size_t length;  // 0: not a lead
  std::uint32_t bits;
  std::uint32_t smallest;
};

Lead classifyLead(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1Fu, 0x80};
  if (byte >= 0xE0 && byte <= 0xEF) return {3, byte & 0x0Fu, 0x800};
  if (byte >= 0xF0 && byte <= 0xF4) return {4, byte & 0x07u, 0x10000};
  return {0, 0, 0};
}

bool isContinuation(unsigned char byte) { return (byte & 0xC0u) == 0x80u; }

bool isEncodable(std::uint32_t codePoint, std::uint32_t smallest) {
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint >= smallest && codePoint <= 0x10FFFF && !surrogate;
}

std::string validUtf8OrRaise(const std::string& text) {
  std::uint64_t errorOffset = 0;
  if (validateUtf8(text, errorOffset)) return text;
  raiseIOException(("File is not valid UTF-8 at byte " + std::to_string(errorOffset)).c_str());
  return {};
}

std::string readUtf8TextFileOrRaise(const char* path) {
  const std::string text = readTextFileOrRaise(path);
  if (Quen_hasPendingError() != 0) return {};
  return validUtf8OrRaise(text);
}

std::size_t announcedLength(unsigned char byte) {
  if ((byte & 0xE0u) == 0xC0u) return 2;
  if ((byte & 0xF0u) == 0xE0u) return 3;
  if ((byte & 0xF8u) == 0xF0u) return 4;
  return 0;
}

void dropIncompleteTail(std::string& text) {
  if (text.empty()) return;
  std::size_t lead = text.size() - 1;
  while (lead > 0 && isContinuation(static_cast<unsigned char>(text[lead]))) --lead;
  const std::size_t length = announcedLength(static_cast<unsigned char>(text[lead]));
  if (text.size() < lead + length) text.resize(lead);
}

std::string readTextFilePrefixOrRaise(const char* path, std::int64_t limit) {
  if (isEmpty(path)) {
    raiseIOException("File path is empty");
    return {};
  }
  if (limit <= 0) return {};
  std::ifstream file(Quen_runtimeFsPath(path), kRead);
  if (!file) {
    raiseIOException("Cannot open file");
    return {};
  }
  std::string prefix(static_cast<std::size_t>(limit), '\0');
  file.read(prefix.data(), limit);
  prefix.resize(static_cast<std::size_t>(file.gcount()));
  if (!file.good() && !file.eof()) {
    raiseIOException("Failed to read file");
    return {};
  }
  dropIncompleteTail(prefix);
  return validUtf8OrRaise(prefix);
}

void write(std::ofstream& file, const std::vector<std::uint8_t>& bytes) {
  if (bytes.empty()) return;
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

namespace quen::plain {

bool validateUtf8(const std::string& text, std::uint64_t& errorOffset) {
  const auto failAt = [&errorOffset](std::size_t offset) {
    errorOffset = offset;
    return false;
  };

  errorOffset = 0;
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      ++i;
      continue;
    }
    const Lead lead = classifyLead(byte);
    if (lead.length == 0 || lead.length > text.size() - i) return failAt(i);

    std::uint32_t codePoint = lead.bits;
    for (std::size_t k = i + 1; k < i + lead.length; ++k) {
      const auto next = static_cast<unsigned char>(text[k]);
      if (!isContinuation(next)) return failAt(k);
      codePoint = (codePoint << 6) | (next & 0x3Fu);
    }
    if (!isEncodable(codePoint, lead.smallest)) return failAt(i);
    i += lead.length;
  }
  return true;
}

// A read error ends the copy silently: operator<<(streambuf*) only sets the string stream's error
// state.
std::string readTextFileOrRaise(const char* path) {
  if (isEmpty(path)) {
    raiseIOException("File path is empty");
    return {};
  }
  std::ifstream file(Quen_runtimeFsPath(path), kRead);
  if (!file) {
    raiseIOException("Cannot open file");
    return {};
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (!file.good() && !file.eof()) {
    raiseIOException("Failed to read file");
    return {};
  }
  return text.str();
}

}  // namespace quen::plain

// Reading.

void* quen_io_FileReader__readAllTextPath(const char* path) {
  return Quen_allocString(readUtf8TextFileOrRaise(path));
}

void* quen_io_FileInputStream__readTextFromOffsetPath(const char* path, std::int64_t offset) {
  const std::string text = readUtf8TextFileOrRaise(path);
  if (offset <= 0) return Quen_allocString(text);
  const auto start = static_cast<std::uint64_t>(offset);
  if (start < text.size()) return Quen_allocString(text.substr(start));
  return Quen_allocString("");
}

void* quen_io_FileReader__readPrefixPath(const char* path, std::int64_t limit) {
  return Quen_allocString(readTextFilePrefixOrRaise(path, limit));
}

std::int64_t quen_io_FileInputStream__readBytesPath(const char* path, std::int64_t position,
                                                    void* destination, std::int64_t count) {
  if (count < 1) return 0;
  if (isEmpty(path)) return raiseIOException("File path is empty"), 0;
  std::ifstream file(Quen_runtimeFsPath(path), kRead);
  if (!file) return raiseIOException("Cannot open file"), 0;
  file.seekg(std::max<std::int64_t>(position, 0));
  if (!file) return raiseIOException("Cannot seek in file"), 0;

  const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(count));
  file.read(bytes.get(), count);
  if (file.bad() || (file.fail() && !file.eof())) {
    return raiseIOException("Failed to read file"), 0;
  }
  const std::streamsize delivered = file.gcount();
  if (delivered == 0) return 0;

  std::string error;
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.get());
  if (!Quen_writeByteArrayData(destination, data, static_cast<std::uint64_t>(delivered), error)) {
    return raiseTypeError(error), 0;
  }
  return delivered;
}

// Writing. The close at the end of each stream is not checked.

bool quen_io_FileWriter__truncatePath(const char* path) {
  if (isEmpty(path)) {
    raiseIOException("File path is empty");
    return false;
  }
  const std::ofstream file(Quen_runtimeFsPath(path), kReplace);
  if (!file) {
    raiseIOException("Cannot open file for writing");
    return false;
  }
  return true;
}

void quen_io_FileWriter__appendPath(const char* path, const char* text) {
  if (isEmpty(path)) return raiseIOException("File path is empty");
  std::ofstream file(Quen_runtimeFsPath(path), kAppend);
  if (!file) return raiseIOException("Cannot open file for writing");
  if (text != nullptr) file << text;
  if (!file.good()) raiseIOException("Failed to write file");
}

void quen_io_FileWriter__writePath(const char* path, const char* text) {
  if (quen_io_FileWriter__truncatePath(path)) quen_io_FileWriter__appendPath(path, text);
}

void quen_io_Files__writeBytesWithPrefixPath(const char* path, const char* prefix, void* bytes) {
  if (isEmpty(path)) return raiseIOException("File path is empty");
  std::vector<std::uint8_t> payload;
  std::string error;
  if (bytes != nullptr && !Quen_readByteArrayData(bytes, payload, error)) {
    return raiseTypeError(error);
  }
  std::ofstream file(Quen_runtimeFsPath(path), kReplace);
  if (!file) return raiseIOException("Cannot open file for writing");
  if (!isEmpty(prefix)) file.write(prefix, static_cast<std::streamsize>(std::strlen(prefix)));
  write(file, payload);
  if (!file.good()) raiseIOException("Failed to write file");
}

void quen_io_Files__writeBytesPath(const char* path, void* bytes) {
  quen_io_Files__writeBytesWithPrefixPath(path, nullptr, bytes);
}

void quen_io_FileOutputStream__appendBytesPath(const char* path, void* bytes) {
  if (isEmpty(path)) return raiseIOException("File path is empty");
  std::vector<std::uint8_t> payload;
  std::string error;
  if (!Quen_readByteArrayData(bytes, payload, error)) return raiseTypeError(error);
  std::ofstream file(Quen_runtimeFsPath(path), kAppend);
  if (!file) return raiseIOException("Cannot open file for writing");
  write(file, payload);
  if (!file.good()) raiseIOException("Failed to write file");
}
