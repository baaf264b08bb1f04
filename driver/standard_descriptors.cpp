#include "driver/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace quen::driver {

// open(2) returns the lowest free descriptor. On an O_PATH descriptor, read and write fail with
// EBADF, so lost output is still reported.
bool holdStandardDescriptors() {
  for (int each = STDIN_FILENO; each <= STDERR_FILENO; ++each) {
    if (fcntl(each, F_GETFD) < 0 && open("/", O_PATH) != each) return false;
  }
  return true;
}

}  // namespace quen::driver
