#include "tests/support/system_calls.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

namespace quen::tests {

namespace {

thread_local Before* tAwaited = nullptr;
thread_local bool tNextCloseFails = false;
thread_local std::optional<std::size_t> tReadable;  // bytes before the defect
thread_local bool tReadFailed = false;

// The definition that stands behind ours.
template <class Function>
Function* following(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

Before::Before(SystemCall call, std::function<void()> step, int nth)
    : call_(call), step_(std::move(step)), remaining_(nth) {
  tAwaited = this;
}

Before::~Before() {
  EXPECT_EQ(remaining_, 0) << "calls that were awaited and not made";
  tAwaited = nullptr;
}

// Forgotten before its step, which may make such calls itself.
void Before::come(SystemCall call) {
  Before* awaited = tAwaited;
  if (awaited == nullptr || awaited->call_ != call || --awaited->remaining_ > 0) return;
  tAwaited = nullptr;
  awaited->step_();
}

FailingClose::FailingClose() { tNextCloseFails = true; }

FailingClose::~FailingClose() {
  EXPECT_FALSE(tNextCloseFails) << "no file was closed";
  tNextCloseFails = false;
}

FailingRead::FailingRead(std::size_t delivered) {
  tReadable = delivered;
  tReadFailed = false;
}

FailingRead::~FailingRead() {
  EXPECT_TRUE(tReadFailed) << "nobody read up to the defect";
  tReadable.reset();
}

}  // namespace quen::tests

using quen::tests::Before;
using quen::tests::following;
using quen::tests::SystemCall;
using quen::tests::tNextCloseFails;
using quen::tests::tReadable;
using quen::tests::tReadFailed;

#pragma GCC visibility push(default)

int stat(const char* path, struct stat* status) noexcept {
  static auto* const next = following<int(const char*, struct stat*)>("stat");
  Before::come(SystemCall::kStatus);
  return next(path, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static auto* const next = following<int(const char*, mode_t)>("mkdir");
  Before::come(SystemCall::kMakeDirectory);
  return next(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  static auto* const next = following<FILE*(const char*, const char*)>("fopen64");
  Before::come(SystemCall::kOpen);
  return next(path, mode);
}

int fclose(FILE* file) {
  static auto* const next = following<int(FILE*)>("fclose");
  Before::come(SystemCall::kClose);
  const int result = next(file);
  if (!std::exchange(tNextCloseFails, false)) return result;
  errno = EIO;
  return EOF;
}

ssize_t read(int file, void* bytes, std::size_t count) {
  static auto* const next = following<ssize_t(int, void*, std::size_t)>("read");
  if (!tReadable) return next(file, bytes, count);
  if (*tReadable == 0) {
    tReadFailed = true;
    tReadable.reset();
    errno = EIO;
    return -1;
  }
  const ssize_t result = next(file, bytes, std::min(count, *tReadable));
  if (result > 0) *tReadable -= static_cast<std::size_t>(result);
  return result;
}

#pragma GCC visibility pop
