#include "runtime/checked/watched_text.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace quen::checked {

namespace {

// Pages are at least this large.
constexpr std::uintptr_t kPage = 4096;

std::uintptr_t endOfPage(const char* at) {
  return (reinterpret_cast<std::uintptr_t>(at) | (kPage - 1)) + 1;
}

const char* pageOf(const char* at) { return reinterpret_cast<const char*>(endOfPage(at) - kPage); }

// The kernel copies the set in before it refuses the unknown operation, so the error is EFAULT for
// an address that cannot be read and EINVAL for any other (sigprocmask(2)). Eight bytes at the
// beginning of a page do not cross its end.
bool isReadablePage(const char* page) {
  constexpr int kUnknownOperation = -1;
  const int before = errno;
  const long result =
      ::syscall(SYS_rt_sigprocmask, kUnknownOperation, page, nullptr, sizeof(std::uint64_t));
  const bool refused = result == -1 && errno == EFAULT;
  errno = before;
  return !refused;
}

// Whether the page can be read, as far as the thread knows: a page that it asked about lately is
// not asked about again.
bool wasReadablePage(const char* page) {
  constexpr std::size_t kKept = 16;
  thread_local std::array<const char*, kKept> readable{};
  const char*& kept = readable[reinterpret_cast<std::uintptr_t>(page) / kPage % kKept];
  if (kept == page) return true;
  if (!isReadablePage(page)) return false;
  kept = page;
  return true;
}

}  // namespace

Extent extentOf(const char* text) {
  constexpr int kMostPages = 4;
  const char* at = text;
  for (int page = 0; page < kMostPages; ++page) {
    const std::size_t rest = endOfPage(at) - reinterpret_cast<std::uintptr_t>(at);
    if (const void* nul = std::memchr(at, '\0', rest)) {
      const auto length = static_cast<std::size_t>(static_cast<const char*>(nul) - text);
      return {.length = length, .terminated = true};
    }
    at += rest;
    if (!wasReadablePage(at)) return {.readable = false};
  }
  return {.length = static_cast<std::size_t>(at - text)};
}

WatchedText::WatchedText(const char* text, const Extent& extent)
    : text_(text), first_(std::min(extent.length, kChunk)) {
  std::memcpy(firstCopy_.data(), text_, first_);
  if (!extent.terminated) return;
  const std::size_t last = std::min(extent.length - first_, kChunk);
  lastText_ = text_ + extent.length - last;
  last_ = last + 1;
  std::memcpy(lastCopy_.data(), lastText_, last_);
}

// Only large blocks are unmapped when they are freed.
bool WatchedText::isUnchanged() const {
  const bool large = last_ == 0;
  if (large && !isReadablePage(pageOf(text_))) return false;
  return std::memcmp(text_, firstCopy_.data(), first_) == 0 &&
         (large || std::memcmp(lastText_, lastCopy_.data(), last_) == 0);
}

}  // namespace quen::checked
