#include "conformance/guarded_texts.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

namespace quen::conformance {

namespace {

// The state of the SIGSEGV handler; only written while no text is in use.
std::atomic<char*> gGuard{nullptr};
std::atomic<std::size_t> gGuardSize{0};
std::atomic<bool> gTouched{false};
struct sigaction gBefore {};

// Makes the guard page accessible, so that the faulting instruction succeeds when it is restarted.
// A fault elsewhere recurs with the previous handler.
void onFault(int signal, siginfo_t* fault, void*) {
  char* const guard = gGuard;
  const auto* address = static_cast<const char*>(fault->si_addr);
  if (guard != nullptr && address >= guard && address < guard + gGuardSize) {
    gTouched = true;
    mprotect(guard, gGuardSize, PROT_READ | PROT_WRITE);
  } else {
    sigaction(signal, &gBefore, nullptr);
  }
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

GuardedTexts::GuardedTexts()
    : pageSize_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
      size_((kMostBytes / pageSize_ + 2) * pageSize_) {
  void* memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) fail("no memory for guarded texts");
  start_ = static_cast<char*>(memory);
  guard_ = start_ + size_ - pageSize_;
  gGuardSize = pageSize_;
  gGuard = guard_;

  struct sigaction action {};
  action.sa_sigaction = onFault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, &gBefore);
}

GuardedTexts::~GuardedTexts() {
  sigaction(SIGSEGV, &gBefore, nullptr);
  gGuard = nullptr;
  munmap(start_, size_);
}

char* GuardedTexts::place(std::string_view text) {
  char* const placed = guard_ - text.size() - 1;
  std::memcpy(placed, text.data(), text.size());
  guard_[-1] = '\0';
  gTouched = false;
  if (mprotect(guard_, pageSize_, PROT_NONE) != 0) fail("memory cannot be guarded");
  return placed;
}

bool GuardedTexts::wasReadBehind() { return gTouched; }

}  // namespace quen::conformance
