// A requirement in a forked process, which answers through a pipe.

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include "conformance/verdict.h"
#include "runtime/forced_unwind.h"

namespace quen::conformance {

namespace {

using Clock = std::chrono::steady_clock;

// A write of at most 4096 bytes (PIPE_BUF) to a pipe is atomic, and so is the verdict.
constexpr std::size_t kLongestAnswer = 4096;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Ends the child, without the exit handlers of the runtime.
[[noreturn]] void answer(const Verdict& verdict, int pipe) {
  const std::string text =
      (static_cast<char>(verdict.outcome) + verdict.message).substr(0, kLongestAnswer);
  const bool written = write(pipe, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  static_cast<void>(std::fflush(nullptr));
  _exit(written ? 0 : 1);
}

// The child: its crash leaves no core, and what the runtime prints is not mixed with the report. A
// forced unwind (pthread_exit) cannot be ended by leaving the handler.
[[noreturn]] void checkAndAnswer(const Requirement& requirement, const Adapter& adapter,
                                 std::chrono::milliseconds patience, int pipe) {
  const rlimit noCore{.rlim_cur = 0, .rlim_max = 0};
  setrlimit(RLIMIT_CORE, &noCore);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  try {
    adapter.afterFork();
    answer(check(requirement, adapter, patience), pipe);
  } catch (const ForcedUnwind&) {
    answer({Outcome::kNotMet, "an operation ended its thread"}, pipe);
  }
}

// Until the end of the time, or until there is something to read or the other end is closed.
bool isReadable(int pipe, Clock::time_point end) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    const int wait = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    pollfd polled{.fd = pipe, .events = POLLIN, .revents = 0};
    const int ready = poll(&polled, 1, wait);
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) fail("poll");
  }
}

std::string readAnswer(int pipe) {
  std::array<char, kLongestAnswer> buffer{};
  ssize_t count = -1;
  do {
    count = read(pipe, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

std::string described(int status) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return "the process was ended by signal " + std::to_string(signal) + " (" + strsignal(signal) +
           ')';
  }
  return "the process exited with status " + std::to_string(WEXITSTATUS(status)) +
         " without an answer";
}

std::string timeOut(std::chrono::milliseconds patience) {
  return "no answer within " + std::to_string(patience.count()) + " ms";
}

// The child of this object; killed and waited for at the end.
class Child {
 public:
  explicit Child(pid_t process) : process_(process) {}
  ~Child() {
    if (ended_) return;
    kill(process_, SIGKILL);
    while (waitpid(process_, nullptr, 0) == -1 && errno == EINTR) continue;
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Whether it ended by then. A pipe that is closed does not mean that its process has ended: the
  // runtime may have closed all descriptors.
  bool endsBy(Clock::time_point end, int& status) {
    constexpr std::chrono::milliseconds kPause{1};
    for (;;) {
      const pid_t waited = waitpid(process_, &status, WNOHANG);
      ended_ = waited == process_ || (waited == -1 && errno != EINTR);
      if (ended_ || Clock::now() >= end) return ended_;
      std::this_thread::sleep_for(kPause);
    }
  }

 private:
  pid_t process_;
  bool ended_ = false;
};

Verdict await(pid_t process, int pipe, std::chrono::milliseconds patience) {
  const Clock::time_point end = Clock::now() + patience;
  Child child(process);
  if (!isReadable(pipe, end)) return {Outcome::kNotMet, timeOut(patience)};

  const std::string text = readAnswer(pipe);
  if (!text.empty()) return {static_cast<Outcome>(text[0]), text.substr(1)};

  int status = 0;
  const bool ended = child.endsBy(end, status);
  return {Outcome::kNotMet, ended ? described(status) : timeOut(patience)};
}

}  // namespace

Verdict checkInOwnProcess(const Requirement& requirement, const Adapter& adapter,
                          std::chrono::milliseconds patience) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) fail("pipe");
  static_cast<void>(std::fflush(nullptr));  // otherwise the child would write the buffers, too
  const pid_t process = fork();
  if (process == -1) fail("fork");
  if (process == 0) {
    close(ends[0]);
    checkAndAnswer(requirement, adapter, patience, ends[1]);
  }
  close(ends[1]);
  Verdict verdict = await(process, ends[0], patience);
  close(ends[0]);
  return verdict;
}

}  // namespace quen::conformance
