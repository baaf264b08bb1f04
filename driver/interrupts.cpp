#include "driver/interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace quen::driver {

namespace {

constexpr unsigned char kFinished = 0;  // no signal has this number

// The write end of a pipe: write(2) is async-signal-safe (signal-safety(7)).
volatile std::sig_atomic_t gWriting = -1;

void handle(int signal) {
  const int error = errno;
  const auto number = static_cast<unsigned char>(signal);
  if (write(gWriting, &number, 1) < 0) _exit(128 + signal);
  errno = error;
}

[[noreturn]] void dieBy(int signal) {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  sigaction(signal, &standard, nullptr);
  kill(getpid(), signal);
  for (;;) pause();
}

}  // namespace

Interrupts::Interrupts(std::function<void()> tidy) : tidy_(std::move(tidy)) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  reading_ = ends[0];
  gWriting = ends[1];
  thread_ = std::thread([this] { waitAndEnd(); });

  struct sigaction action = {};
  action.sa_handler = handle;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &usual_[i]);
    if (usual_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

Interrupts::~Interrupts() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &usual_[i], nullptr);
  // The pipe has a reader and room for one byte; without it, join would wait forever.
  if (write(gWriting, &kFinished, 1) != 1) std::terminate();
  thread_.join();
  close(reading_);
  close(gWriting);
}

void Interrupts::waitAndEnd() const {
  unsigned char signal = kFinished;
  while (read(reading_, &signal, 1) < 0 && errno == EINTR) {
  }
  if (signal == kFinished) return;
  tidy_();
  dieBy(signal);
}

void tellIfPossible(const std::string& text) {
  constexpr int kMilliseconds = 100;
  pollfd standardError = {STDERR_FILENO, POLLOUT, 0};
  if (poll(&standardError, 1, kMilliseconds) != 1 || (standardError.revents & POLLOUT) == 0) return;
  if (write(STDERR_FILENO, text.data(), text.size()) < 0)
    return;  // the process is ending, so a failure cannot be reported
}

}  // namespace quen::driver
