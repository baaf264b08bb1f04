// One-shot writing: every call opens the file, writes, and closes it again.
//
// The close at the end of each operation is not checked: it flushes the stream's buffer, and a
// failure of that flush raises nothing. Failures that the state of the stream shows before the
// close are raised.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "conventions.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

using namespace quen::io;

namespace {

constexpr std::ios::openmode kReplace = std::ios::out | std::ios::trunc | std::ios::binary;
constexpr std::ios::openmode kAppend = std::ios::out | std::ios::app | std::ios::binary;

using Bytes = std::vector<std::uint8_t>;

// Returns a stream in a failed state after raising.
std::ofstream openOrRaise(const char* path, std::ios::openmode mode) {
  std::ofstream file(Quen_runtimeFsPath(path), mode);
  if (!file) raiseIOException("Cannot open file for writing");
  return file;
}

void requireWritten(const std::ofstream& file) {
  if (!file.good()) raiseIOException("Failed to write file");
}

void write(std::ofstream& file, const Bytes& bytes) {
  if (bytes.empty()) return;
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

bool readBytesOrRaise(void* object, Bytes& bytes) {
  std::string error;
  if (Quen_readByteArrayData(object, bytes, error)) return true;
  raiseTypeError(error);
  return false;
}

bool truncateFileOrRaise(const char* path) {
  if (!requirePath(path, "File path is empty")) return false;
  return openOrRaise(path, kReplace).good();
}

// A null text still creates a missing file.
void appendTextFileOrRaise(const char* path, const char* text) {
  if (!requirePath(path, "File path is empty")) return;

  std::ofstream file = openOrRaise(path, kAppend);
  if (!file) return;
  if (text != nullptr) file << text;
  requireWritten(file);
}

// Unlike in appending, a null Byte[] is an empty payload here.
void writeBytesFileOrRaise(const char* path, const char* prefix, void* bytes) {
  if (!requirePath(path, "File path is empty")) return;
  Bytes payload;
  if (bytes != nullptr && !readBytesOrRaise(bytes, payload)) return;

  std::ofstream file = openOrRaise(path, kReplace);
  if (!file) return;
  if (!isEmpty(prefix)) file.write(prefix, static_cast<std::streamsize>(std::strlen(prefix)));
  write(file, payload);
  requireWritten(file);
}

void appendBytesFileOrRaise(const char* path, void* bytes) {
  if (!requirePath(path, "File path is empty")) return;
  Bytes payload;
  if (!readBytesOrRaise(bytes, payload)) return;

  std::ofstream file = openOrRaise(path, kAppend);
  if (!file) return;
  write(file, payload);
  requireWritten(file);
}

}  // namespace

bool quen_io_FileWriter__truncatePath(const char* path) { return truncateFileOrRaise(path); }

bool quen_io_FileOutputStream__truncatePath(const char* path) { return truncateFileOrRaise(path); }

void quen_io_FileWriter__appendPath(const char* path, const char* text) {
  appendTextFileOrRaise(path, text);
}

void quen_io_FileOutputStream__appendTextPath(const char* path, const char* text) {
  appendTextFileOrRaise(path, text);
}

// Opens the file twice. It is empty in between, and stays empty when the second open fails. A
// caller who needs the old text until the new one is complete uses writeAtomic.
void quen_io_FileWriter__writePath(const char* path, const char* text) {
  if (truncateFileOrRaise(path)) appendTextFileOrRaise(path, text);
}

void quen_io_Files__writeBytesPath(const char* path, void* bytes) {
  writeBytesFileOrRaise(path, nullptr, bytes);
}

void quen_io_Files__writeBytesWithPrefixPath(const char* path, const char* prefix, void* bytes) {
  writeBytesFileOrRaise(path, prefix, bytes);
}

void quen_io_FileOutputStream__appendBytesPath(const char* path, void* bytes) {
  appendBytesFileOrRaise(path, bytes);
}
