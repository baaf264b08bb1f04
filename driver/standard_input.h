// Standard input as a file with a path, for entry points that take one.
#pragma once

#include <string>

namespace quen::driver {

// A copy in memory of the rest of standard input. /dev/stdin is unsuitable: opening it starts a
// regular file at offset 0 again, and fails for a socket.
class StandardInput {
 public:
  // Reads to end of file. Throws std::system_error on failure.
  StandardInput();
  ~StandardInput();
  StandardInput& operator=(StandardInput&&) = delete;  // neither copyable nor movable

  std::string path() const { return "/proc/self/fd/" + std::to_string(copy_); }

 private:
  void copyAll() const;

  int copy_;
};

}  // namespace quen::driver
