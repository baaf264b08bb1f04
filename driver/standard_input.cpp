#include "driver/standard_input.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>
#include <system_error>

namespace quen::driver {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(int file, std::span<const char> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) fail("Cannot keep standard input in memory");
    if (count > 0) bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

}  // namespace

StandardInput::StandardInput() : copy_(memfd_create("standard input", MFD_CLOEXEC)) {
  if (copy_ < 0) fail("Cannot keep standard input in memory");
  try {
    copyAll();
  } catch (...) {
    close(copy_);
    throw;
  }
}

StandardInput::~StandardInput() { close(copy_); }

void StandardInput::copyAll() const {
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count == 0) return;
    if (count < 0 && errno != EINTR) fail("Cannot read standard input");
    if (count > 0) writeAll(copy_, std::span(buffer).first(static_cast<std::size_t>(count)));
  }
}

}  // namespace quen::driver
