// The system calls of an entry point, for `call --system-calls`. The driver executes itself under
// strace; in the trace, two calls of getpgid(2), which is not used otherwise, mark the beginning
// and the end of the entry point.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quen::driver {

struct SystemCall {
  std::string call;      // openat(AT_FDCWD, "/x", O_RDONLY)
  std::string returned;  // 3
  std::string error;     // EACCES; empty on success
  std::string reason;    // Permission denied
};

// Marks the beginning and the end of its scope in the trace.
class SystemCallMarks {
 public:
  SystemCallMarks();
  ~SystemCallMarks();
  SystemCallMarks& operator=(SystemCallMarks&&) = delete;  // neither copyable nor movable
};

// Executes strace with the same command line in this process; does nothing if already traced.
// Throws UsageError if strace is missing or not permitted to trace.
void runUnderStrace();

// The system calls between the marks so far, except those that allocate memory.
std::vector<SystemCall> systemCallsSoFar();

// The same for the lines of a trace.
std::vector<SystemCall> systemCallsBetweenMarks(std::string_view trace);

// One line, such as "openat(...) = 3" or "openat(...): EACCES, Permission denied".
std::string describe(const SystemCall& each);

}  // namespace quen::driver
