// Its inline functions in the headers would be defined once more here.
#undef _FORTIFY_SOURCE

#include "tests/support/system_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <utility>

#include "tests/support/next_definition.h"

namespace quen::tests {

namespace {

thread_local BeforeCall* tAwaited = nullptr;
thread_local FailingCall* tFailing = nullptr;
thread_local std::optional<std::size_t> tReadable;  // bytes before the error
thread_local bool tReadFailed = false;
thread_local int tEntriesBefore = -1;  // entries before the error; negative: none fails
thread_local int tFolderError = 0;
thread_local std::optional<std::size_t> tWritesAtMost;
thread_local bool tWriteShortened = false;

}  // namespace

BeforeCall::BeforeCall(SystemCall call, std::function<void()> step, int nth)
    : call_(call), step_(std::move(step)), remaining_(nth) {
  tAwaited = this;
}

BeforeCall::~BeforeCall() {
  EXPECT_EQ(remaining_, 0) << "expected calls that were not made";
  tAwaited = nullptr;
}

// Reset before its step runs, because the step may make such calls itself.
void BeforeCall::notify(SystemCall call) {
  BeforeCall* awaited = tAwaited;
  if (awaited == nullptr || awaited->call_ != call || --awaited->remaining_ > 0) return;
  tAwaited = nullptr;
  awaited->step_();
}

FailingCall::FailingCall(SystemCall call, int error) : call_(call), error_(error) {
  tFailing = this;
}

FailingCall::~FailingCall() {
  EXPECT_NE(tFailing, this) << "the call that should fail was not made";
  tFailing = nullptr;
}

bool FailingCall::fails(SystemCall call) {
  if (tFailing == nullptr || tFailing->call_ != call) return false;
  errno = std::exchange(tFailing, nullptr)->error_;
  return true;
}

ShortWrites::ShortWrites(std::size_t most) {
  tWritesAtMost = most;
  tWriteShortened = false;
}

ShortWrites::~ShortWrites() {
  EXPECT_TRUE(tWriteShortened) << "no write was long enough";
  tWritesAtMost.reset();
}

FailingFolder::FailingFolder(int delivered, int error) {
  tEntriesBefore = delivered;
  tFolderError = error;
}

FailingFolder::~FailingFolder() {
  EXPECT_EQ(tEntriesBefore, -1) << "no reading of a folder reached the error";
  tEntriesBefore = -1;
}

FailingRead::FailingRead(std::size_t delivered) {
  tReadable = delivered;
  tReadFailed = false;
}

FailingRead::~FailingRead() {
  EXPECT_TRUE(tReadFailed) << "no read reached the error";
  tReadable.reset();
}

}  // namespace quen::tests

using namespace quen::tests;

// The symbols that the module and the C++ library call, where they depend on the platform.
#if __SIZEOF_POINTER__ == 4  // 64-bit offsets, and 64-bit times except in libstdc++ itself
#define STAT "stat64"
#define FSTAT "__fstat64_time64"
#define OPEN "open64"
#define READDIR "readdir64"
#else
#define STAT "stat"
#define FSTAT "fstat"
#define OPEN "open"
#define READDIR "readdir"
#endif
#ifdef _LIBCPP_VERSION
#define FOPEN "fopen"
#else
#define FOPEN "fopen64"
#endif

#pragma GCC visibility push(default)

int interposedStat(const char* path, void* status) noexcept __asm__(STAT);
int interposedFstat(int file, void* status) noexcept __asm__(FSTAT);
int interposedOpen(const char* path, int flags, ...) __asm__(OPEN);
FILE* interposedFopen(const char* path, const char* mode) __asm__(FOPEN);
dirent* interposedReaddir(DIR* folder) __asm__(READDIR);

int interposedStat(const char* path, void* status) noexcept {
  static auto* const next = nextDefinition<int(const char*, void*)>(STAT);
  BeforeCall::notify(SystemCall::kStatus);
  return next(path, status);
}

int interposedFstat(int file, void* status) noexcept {
  static auto* const next = nextDefinition<int(int, void*)>(FSTAT);
  return FailingCall::fails(SystemCall::kFileStatus) ? -1 : next(file, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static auto* const next = nextDefinition<int(const char*, mode_t)>("mkdir");
  BeforeCall::notify(SystemCall::kMakeDirectory);
  return next(path, mode);
}

int interposedOpen(const char* path, int flags, ...) {
  static auto* const next = nextDefinition<int(const char*, int, ...)>(OPEN);
  std::va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  BeforeCall::notify(SystemCall::kOpen);
  return next(path, flags, mode);
}

// The C library's own streams call none of these.
FILE* interposedFopen(const char* path, const char* mode) {
  static auto* const next = nextDefinition<FILE*(const char*, const char*)>(FOPEN);
  BeforeCall::notify(SystemCall::kOpen);
  return next(path, mode);
}

int fclose(FILE* file) {
  static auto* const next = nextDefinition<int(FILE*)>("fclose");
  BeforeCall::notify(SystemCall::kClose);
  const int result = next(file);
  return FailingCall::fails(SystemCall::kClose) ? EOF : result;
}

int close(int file) {
  static auto* const next = nextDefinition<int(int)>("close");
  BeforeCall::notify(SystemCall::kClose);
  const int result = next(file);
  return FailingCall::fails(SystemCall::kClose) ? -1 : result;
}

ssize_t write(int file, const void* bytes, std::size_t count) {
  static auto* const next = nextDefinition<ssize_t(int, const void*, std::size_t)>("write");
  BeforeCall::notify(SystemCall::kWrite);
  if (!tWritesAtMost || count <= *tWritesAtMost) return next(file, bytes, count);
  tWriteShortened = true;
  return next(file, bytes, *tWritesAtMost);
}

dirent* interposedReaddir(DIR* folder) {
  static auto* const next = nextDefinition<dirent*(DIR*)>(READDIR);
  if (tEntriesBefore < 0 || tEntriesBefore-- > 0) return next(folder);
  errno = tFolderError;
  return nullptr;
}

int closedir(DIR* folder) {
  static auto* const next = nextDefinition<int(DIR*)>("closedir");
  BeforeCall::notify(SystemCall::kCloseFolder);
  return next(folder);
}

#ifndef __SANITIZE_THREAD__
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static constinit NextDefinition<int(pthread_mutex_t*)> next("pthread_mutex_lock");
  BeforeCall::notify(SystemCall::kLock);
  return next.get()(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static constinit NextDefinition<int(pthread_mutex_t*)> next("pthread_mutex_trylock");
  BeforeCall::notify(SystemCall::kTryLock);
  return next.get()(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static constinit NextDefinition<int(pthread_mutex_t*)> next("pthread_mutex_unlock");
  BeforeCall::notify(SystemCall::kUnlock);
  return next.get()(mutex);
}
#endif

ssize_t read(int file, void* bytes, std::size_t count) {
  static auto* const next = nextDefinition<ssize_t(int, void*, std::size_t)>("read");
  BeforeCall::notify(SystemCall::kRead);
  if (FailingCall::fails(SystemCall::kRead)) return -1;
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
