// A form with one mistake that only a soak shows, chosen by QUEN_IO_MISTAKE:
//
//   short        texts are written and appended with one write(2): the rest of a short write is
//   lost descriptors  every descriptor of a file that was found to exist stays open memory every
//   query for the size of a file leaks
//
// It is linked to the plain form, whose definitions it calls and otherwise leaves alone.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

namespace {

std::atomic<void*> gLost{nullptr};  // what leaked last: the compiler may not leave it out

bool makes(std::string_view mistake) {
  const char* chosen = std::getenv("QUEN_IO_MISTAKE");
  return chosen != nullptr && chosen == mistake;
}

template <class Function>
Function* plainForm(Function*, const char* symbol) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

// As std::ofstream does it, which leaves texts of less than 1,024 bytes to the close.
void appendInOneWrite(const char* path, const char* text) {
  constexpr std::size_t kBuffered = 1'024;
  const std::filesystem::path file = Quen_runtimeFsPath(path);
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (descriptor < 0) return Quen_raise("IOException", "Cannot open file for writing");
  const std::size_t size = std::strlen(text);
  ssize_t written = 0;
  do {
    written = size == 0 ? 0 : write(descriptor, text, size);
  } while (written < 0 && errno == EINTR);
  if (written < 0 && size >= kBuffered) Quen_raise("IOException", "Failed to write file");
  close(descriptor);
}

}  // namespace

void quen_io_FileWriter__appendPath(const char* path, const char* text) {
  static auto* const plain =
      plainForm(&quen_io_FileWriter__appendPath, "quen_io_FileWriter__appendPath");
  const bool isUsual = path != nullptr && *path != '\0' && text != nullptr;
  if (isUsual && makes("short")) return appendInOneWrite(path, text);
  plain(path, text);
}

void quen_io_FileWriter__writePath(const char* path, const char* text) {
  static auto* const plain =
      plainForm(&quen_io_FileWriter__writePath, "quen_io_FileWriter__writePath");
  if (text == nullptr || !makes("short")) return plain(path, text);
  if (quen_io_FileWriter__truncatePath(path)) appendInOneWrite(path, text);
}

bool quen_io_FileInputStream__existsPath(const char* path) {
  static auto* const plain =
      plainForm(&quen_io_FileInputStream__existsPath, "quen_io_FileInputStream__existsPath");
  const bool exists = plain(path);
  if (exists && makes("descriptors")) open(path, O_PATH | O_CLOEXEC);
  return exists;
}

std::int64_t quen_io_FileInputStream__sizePath(const char* path) {
  static auto* const plain =
      plainForm(&quen_io_FileInputStream__sizePath, "quen_io_FileInputStream__sizePath");
  constexpr std::size_t kLeaked = 4 << 20;
  if (makes("memory")) gLost = std::memset(std::malloc(kLeaked), 1, kLeaked);
  return plain(path);
}
