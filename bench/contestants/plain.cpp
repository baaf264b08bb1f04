// The plain form of what is measured: what every entry point does, written straight with the
// standard library, with the same calls of the runtime in the same order.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unordered_map>

#include "bench/contestants/entry_points.h"
#include "conventions.h"
#include "quen/io/operations.h"

namespace fs = std::filesystem;
using quen::io::isEmpty;
using quen::io::raiseIOException;

namespace {

// contents

// A lead byte announces how long its sequence is, brings the first bits of the code point, and sets
// the smallest code point that needs this length.
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

bool validateUtf8(const std::string& text, std::uint64_t& errorOffset) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  const auto failAt = [&errorOffset](std::size_t offset) {
    errorOffset = offset;
    return false;
  };

  errorOffset = 0;
  std::size_t i = 0;
  while (i < size) {
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    const Lead lead = classifyLead(bytes[i]);
    if (lead.length == 0 || lead.length > size - i) return failAt(i);

    std::uint32_t codePoint = lead.bits;
    for (std::size_t k = i + 1; k < i + lead.length; ++k) {
      if (!isContinuation(bytes[k])) return failAt(k);
      codePoint = (codePoint << 6) | (bytes[k] & 0x3Fu);
    }
    if (!isEncodable(codePoint, lead.smallest)) return failAt(i);
    i += lead.length;
  }
  return true;
}

bool validate(const std::string& text) {
  std::uint64_t errorOffset = 0;
  return validateUtf8(text, errorOffset);
}

std::string validOrRaise(std::string text) {
  std::uint64_t errorOffset = 0;
  if (validateUtf8(text, errorOffset)) return text;
  raiseIOException(("File is not valid UTF-8 at byte " + std::to_string(errorOffset)).c_str());
  return {};
}

std::string readTextFile(const char* path) {
  std::ifstream file(Quen_runtimeFsPath(path), std::ios::in | std::ios::binary);
  if (!file) {
    raiseIOException("Cannot open file");
    return {};
  }
  std::ostringstream text;
  text << file.rdbuf();
  return std::move(text).str();
}

void* readAllText(const char* path) {
  std::string text = readTextFile(path);
  if (Quen_hasPendingError() != 0) return Quen_allocString("");
  return Quen_allocString(validOrRaise(std::move(text)));
}

void* readPrefix(const char* path, std::int64_t limit) {
  std::ifstream file(Quen_runtimeFsPath(path), std::ios::in | std::ios::binary);
  if (!file) {
    raiseIOException("Cannot open file");
    return Quen_allocString("");
  }
  std::string prefix(static_cast<std::size_t>(limit), '\0');
  file.read(prefix.data(), limit);
  prefix.resize(static_cast<std::size_t>(file.gcount()));
  return Quen_allocString(validOrRaise(std::move(prefix)));
}

std::int64_t readBytes(const char* path, std::int64_t position, void* destination,
                       std::int64_t count) {
  std::ifstream file(Quen_runtimeFsPath(path), std::ios::in | std::ios::binary);
  if (!file) {
    raiseIOException("Cannot open file");
    return 0;
  }
  file.seekg(std::max<std::int64_t>(position, 0));
  const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(count));
  file.read(bytes.get(), count);
  const std::int64_t delivered = file.gcount();

  std::string error;
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.get());
  Quen_writeByteArrayData(destination, data, static_cast<std::uint64_t>(delivered), error);
  return delivered;
}

// path

bool containsParentTraversalSegment(std::string_view rest) {
  for (;;) {
    const std::size_t end = rest.find_first_of("/\\");
    if (rest.substr(0, end) == "..") return true;
    if (end == std::string_view::npos) return false;
    rest.remove_prefix(end + 1);
  }
}

void* normalizePath(const char* path) {
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  return Quen_allocPathString(Quen_runtimeFsPath(path).lexically_normal(), windowsRoot);
}

void* normalize(void* self) {
  const char* text = Quen_filePathFromObject(self);
  const bool folder = quen::io::isFolder(self);
  const bool parentTraversal =
      Quen_getField_i64(self, "_hasParentTraversal") != 0 || containsParentTraversalSegment(text);
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(text);
  const fs::path normal = Quen_runtimeFsPath(text).lexically_normal();
  return Quen_allocTypedPathObjectFromPath(normal, !folder, windowsRoot, parentTraversal);
}

void* parentPath(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  const bool windowsRoot = Quen_pathHasExplicitWindowsRoot(path);
  const fs::path parent = Quen_runtimeFsPath(path).parent_path().lexically_normal();
  if (parent.empty()) return Quen_allocString("");
  return Quen_allocPathString(parent, windowsRoot);
}

void* resolvePath(const char* base, const char* operand) {
  if (isEmpty(base)) return Quen_allocString(operand == nullptr ? "" : operand);
  if (isEmpty(operand)) return Quen_allocString(base);
  const bool windowsRoot =
      Quen_pathHasExplicitWindowsRoot(base) || Quen_pathHasExplicitWindowsRoot(operand);
  const fs::path basePath = Quen_runtimeFsPath(base);
  const fs::path operandPath = Quen_runtimeFsPath(operand);
  const fs::path joined = operandPath.has_root_directory() ? operandPath : basePath / operandPath;
  return Quen_allocPathString(joined.lexically_normal(), windowsRoot);
}

bool isNormalized(void* self) {
  const char* text = Quen_filePathFromObject(self);
  if (isEmpty(text)) return false;
  const fs::path given = Quen_runtimeFsPath(text);
  return given == given.lexically_normal();
}

void* pathName(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  return Quen_allocPathString(Quen_runtimeFsPath(path).filename(), true);
}

void* pathExtension(const char* path) {
  if (isEmpty(path)) return Quen_allocString("");
  std::string extension = Quen_visiblePathString(Quen_runtimeFsPath(path).extension(), true);
  if (extension.starts_with('.')) extension.erase(0, 1);
  return Quen_allocString(extension);
}

// writers

struct Writer {
  std::mutex mutex;
  std::ofstream stream;
};

std::unordered_map<std::int64_t, std::shared_ptr<Writer>> gWriters;
std::mutex gRegistry;
std::atomic<std::int64_t> gNextHandle{1};

std::int64_t openWriter(const char* path, std::int32_t append) {
  const auto writer = std::make_shared<Writer>();
  const std::ios::openmode mode = append != 0 ? std::ios::app : std::ios::trunc;
  writer->stream.open(Quen_runtimeFsPath(path).native(), std::ios::out | std::ios::binary | mode);
  if (!writer->stream) {
    raiseIOException("Cannot open file for writing");
    return 0;
  }
  const std::int64_t handle = gNextHandle.fetch_add(1);
  const std::lock_guard lock(gRegistry);
  gWriters.try_emplace(handle, writer);
  return handle;
}

std::shared_ptr<Writer> find(std::int64_t handle) {
  const std::lock_guard lock(gRegistry);
  const auto entry = gWriters.find(handle);
  if (entry != gWriters.end()) return entry->second;
  raiseIOException("File writer is closed");
  return nullptr;
}

void write(std::int64_t handle, const char* text) {
  const std::shared_ptr<Writer> writer = find(handle);
  if (!writer) return;
  const std::lock_guard lock(writer->mutex);
  writer->stream.write(text, static_cast<std::streamsize>(std::strlen(text)));
  if (!writer->stream.good()) raiseIOException("Failed to write file");
}

void closeWriter(std::int64_t handle) {
  const std::shared_ptr<Writer> writer = find(handle);
  if (!writer) return;
  {
    const std::lock_guard lock(gRegistry);
    gWriters.erase(handle);
  }
  const std::lock_guard lock(writer->mutex);
  writer->stream.flush();
  if (!writer->stream.good()) return raiseIOException("Failed to flush file before closing");
  writer->stream.close();
}

// data

void writeAtomic(const char* path, const char* content) {
  static std::atomic<std::uint64_t> sequence{1};
  const fs::path target = Quen_runtimeFsPath(path);
  fs::path temporary = target;
  temporary += ".tmp-" + std::to_string(sequence.fetch_add(1));
  std::ofstream file(temporary, std::ios::out | std::ios::binary | std::ios::trunc);
  file.write(content, static_cast<std::streamsize>(std::strlen(content)));
  file.flush();
  if (!file.good()) return raiseIOException("Cannot write temporary document index");
  file.close();
  std::error_code error;
  fs::rename(temporary, target, error);
  if (error) raiseIOException("Cannot atomically publish document index");
}

// entries

void* listNames(const char* path) {
  void* names = Quen_allocObject("ArrayList");
  std::error_code error;
  fs::directory_iterator entry(Quen_runtimeFsPath(path),
                               fs::directory_options::skip_permission_denied, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    Quen_cachePathEntryKind(entry->path(), Quen_pathEntryKind(entry->path()));
    const std::string name = Quen_visiblePathString(entry->path().filename(), false);
    quen_collections_ArrayList_add(names, Quen_allocString(name));
  }
  if (error) raiseIOException("Cannot enumerate directory");
  return names;
}

void removeAll(const char* path) {
  std::error_code error;
  fs::remove_all(Quen_runtimeFsPath(path), error);
  if (error) raiseIOException("Cannot remove directory recursively");
}

// The library has no guard.
bool isUnsafe(const char*) { return false; }

}  // namespace

int main() {
  return quen::bench::serve(quen::bench::workloadsOf({
      .validate = validate,
      .readAllText = readAllText,
      .readPrefix = readPrefix,
      .readBytes = readBytes,
      .normalizePath = normalizePath,
      .normalize = normalize,
      .parentPath = parentPath,
      .resolvePath = resolvePath,
      .isNormalized = isNormalized,
      .pathName = pathName,
      .pathExtension = pathExtension,
      .openWriter = openWriter,
      .write = write,
      .closeWriter = closeWriter,
      .writeAtomic = writeAtomic,
      .listNames = listNames,
      .removeAll = removeAll,
      .isUnsafe = isUnsafe,
  }));
}
