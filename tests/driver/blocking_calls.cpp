// For LD_PRELOAD: reads and writes of the file QUEN_IO_BLOCKED block forever, as on a disk or
// network file system that hangs, and the file QUEN_IO_ENDLESS never reaches end of file, whatever
// its size.

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

// Whether the descriptor refers to the file that the environment variable names.
bool isNamedBy(const char* variable, int file) {
  const char* name = std::getenv(variable);
  if (name == nullptr) return false;
  std::array<char, 4096> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  return length > 0 && std::string_view(path.data(), static_cast<std::size_t>(length)) == name;
}

void blockOn(int file) {
  if (!isNamedBy("QUEN_IO_BLOCKED", file)) return;
  for (;;) pause();
}

}  // namespace

extern "C" {

ssize_t read(int file, void* bytes, size_t count) {
  blockOn(file);
  if (isNamedBy("QUEN_IO_ENDLESS", file)) {
    std::memset(bytes, 'x', count);
    return static_cast<ssize_t>(count);
  }
  return syscall(SYS_read, file, bytes, count);
}

ssize_t write(int file, const void* bytes, size_t count) {
  blockOn(file);
  return syscall(SYS_write, file, bytes, count);
}

ssize_t writev(int file, const iovec* parts, int count) {
  blockOn(file);
  return syscall(SYS_writev, file, parts, count);
}

}  // extern "C"
