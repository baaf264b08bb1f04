#include "driver/system_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "driver/values.h"

namespace fs = std::filesystem;

namespace quen::driver {

namespace {

constexpr std::string_view kMark = "getpgid(";
const char* const kTraceDescriptor =
    "QUEN_IO_SYSTEM_CALLS";  // the descriptor of the trace, for the traced process

std::string reasonOf(int error) { return std::generic_category().message(error); }

// The errno with which tracing a child process (ptrace(2)) fails, or 0.
int tracingError() {
  const pid_t child = fork();
  if (child < 0) return errno;
  if (child == 0) _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : errno);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : EPERM;
}

// A file in memory that strace and the traced process share. Its descriptor number is high, so that
// the entry point gets the same descriptors as without strace.
int traceFile() {
  constexpr int kHighNumber = 100;
  const int file = memfd_create("system calls", MFD_CLOEXEC);
  const int shared = file < 0 ? -1 : fcntl(file, F_DUPFD, kHighNumber);
  if (shared < 0) throw UsageError("cannot keep a trace: " + reasonOf(errno));
  return shared;
}

// The arguments of main, with the path of this program as the first.
std::vector<std::string> commandLine() {
  std::vector<std::string> words;
  std::ifstream file("/proc/self/cmdline");
  for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
  if (words.empty()) throw UsageError("cannot read /proc/self/cmdline");
  words[0] = fs::read_symlink("/proc/self/exe").string();
  return words;
}

[[noreturn]] void execute(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  const std::string why = errno == ENOENT ? "install the package strace" : reasonOf(errno);
  throw UsageError("--system-calls needs strace, which cannot be run: " + why);
}

// Decodes the octal escapes (\303\244) that strace writes for non-ASCII bytes; other escapes stay.
std::string decoded(std::string_view text) {
  const auto isDigit = [](char each) { return each >= '0' && each <= '7'; };
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view digits = text.substr(i + 1, 3);
    if (text[i] != '\\' || digits.empty()) {
      bytes += text[i];
    } else if (digits.size() == 3 && (digits[0] == '2' || digits[0] == '3') && isDigit(digits[1]) &&
               isDigit(digits[2])) {
      bytes +=
          static_cast<char>((digits[0] - '0') << 6 | (digits[1] - '0') << 3 | (digits[2] - '0'));
      i += 3;
    } else {
      bytes.append(text.substr(i, 2));
      ++i;
    }
  }
  return bytes;
}

// Parses "CALL = -1 EACCES (Permission denied)" or "CALL = 3".
SystemCall systemCallOf(std::string_view line) {
  const std::size_t equals = line.rfind(" = ");
  if (equals == std::string_view::npos) return {decoded(line), "?", "", ""};

  SystemCall call = {decoded(line.substr(0, equals)), std::string(line.substr(equals + 3)), "", ""};
  const std::size_t name = call.returned.find(" E");
  const std::size_t reason = call.returned.find(" (");
  if (name == std::string::npos || reason == std::string::npos || reason < name) return call;
  call.error = call.returned.substr(name + 1, reason - name - 1);
  call.reason = call.returned.substr(reason + 2, call.returned.size() - reason - 3);
  call.returned.resize(name);
  return call;
}

}  // namespace

SystemCallMarks::SystemCallMarks() { static_cast<void>(getpgid(0)); }

SystemCallMarks::~SystemCallMarks() { static_cast<void>(getpgid(0)); }

// strace opens the shared file through /proc/self/fd, so it has a file offset of its own. With -I
// 2, a fatal signal terminates strace as well as the traced process.
void runUnderStrace() {
  if (std::getenv(kTraceDescriptor) != nullptr) return;
  if (const int error = tracingError()) {
    throw UsageError("--system-calls needs ptrace, which is refused here: " + reasonOf(error) +
                     " (by a container, by kernel.yama.ptrace_scope, or since this process is "
                     "traced already)");
  }
  const std::string file = std::to_string(traceFile());
  setenv(kTraceDescriptor, file.c_str(), 1);
  std::vector<std::string> words = {"strace", "-qq",
                                    "-I",     "2",
                                    "-a",     "1",
                                    "-e",     "signal=none",
                                    "-e",     "trace=!%memory",
                                    "-o",     "/proc/self/fd/" + file,
                                    "--"};
  for (const std::string& word : commandLine()) words.push_back(word);
  execute(std::move(words));
}

// strace writes the line of a call before it resumes the process. The size is read once, because
// reading the trace is traced as well.
std::vector<SystemCall> systemCallsSoFar() {
  const std::string path = std::string("/proc/self/fd/") + std::getenv(kTraceDescriptor);
  std::string trace(fs::file_size(path), '\0');
  std::ifstream(path).read(trace.data(), static_cast<std::streamsize>(trace.size()));
  return systemCallsBetweenMarks(trace);
}

std::vector<SystemCall> systemCallsBetweenMarks(std::string_view trace) {
  std::vector<SystemCall> calls;
  int marks = 0;
  while (!trace.empty() && marks < 2) {
    const std::size_t end = std::min(trace.find('\n'), trace.size());
    const std::string_view line = trace.substr(0, end);
    trace.remove_prefix(std::min(end + 1, trace.size()));
    if (line.starts_with(kMark)) {
      ++marks;
    } else if (marks == 1) {
      calls.push_back(systemCallOf(line));
    }
  }
  return calls;
}

std::string describe(const SystemCall& each) {
  if (each.error.empty()) return each.call + " = " + each.returned;
  return each.call + ": " + each.error + ", " + each.reason;
}

}  // namespace quen::driver
