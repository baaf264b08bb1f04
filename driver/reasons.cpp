#include "driver/reasons.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quen::driver {

namespace {

// Reading from a FIFO or a device would consume a byte.
bool mayBeRead(int file) {
  struct stat status = {};
  return fstat(file, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
}

// O_NONBLOCK, because open(2) of a FIFO without a writer blocks.
int readingError(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (file < 0) return errno;
  char byte = 0;
  const int error = mayBeRead(file) && read(file, &byte, 1) < 0 ? errno : 0;
  close(file);  // opened for reading, so a failure loses nothing
  return error;
}

}  // namespace

std::string readingReason(const std::string& path) {
  const int error = readingError(path);
  return error == 0 ? "" : ": " + std::generic_category().message(error);
}

}  // namespace quen::driver
