// Interposes functions of the C library, so that a test can act right before one of them is called
// inside an entry point, or let it fail in a way that no file system at hand does.
//
// The definitions in the test program preempt those of the C library (symbol interposition), also
// for libstdc++. Only calls by the thread that created the object are affected.
#pragma once

#include <cstddef>
#include <functional>

namespace quen::tests {

enum class SystemCall {
  kStatus,
  kFileStatus,  // fstat
  kMakeDirectory,
  kOpen,
  kRead,
  kWrite,
  kClose,
  kCloseFolder,
  // Of a pthread_mutex_t; not with the thread sanitizer, which has to see these calls itself.
  kLock,
  kTryLock,
  kUnlock,
};

// Does what another process might do, right before the nth such call from now on.
//
//   const BeforeCall mkdir(SystemCall::kMakeDirectory, [&] { fs::create_directory(folder); });
//   quen_io_FolderPath__mkdirNative(folder.c_str());
class BeforeCall {
 public:
  BeforeCall(SystemCall call, std::function<void()> step, int nth = 1);

  // Fails the test when there were fewer calls.
  ~BeforeCall();

  BeforeCall& operator=(BeforeCall&&) = delete;  // neither copyable nor movable

  // Called by each interposed function before it calls the C library.
  static void notify(SystemCall call);

 private:
  SystemCall call_;
  std::function<void()> step_;
  int remaining_;
};

// Makes the next such call report this error: kRead, kClose (the file is closed anyway) or
// kFileStatus.
class FailingCall {
 public:
  FailingCall(SystemCall call, int error);

  // Fails the test when there was no such call.
  ~FailingCall();

  FailingCall& operator=(FailingCall&&) = delete;  // neither copyable nor movable

  // Called by each interposed function that can fail: whether it has to; sets errno.
  static bool fails(SystemCall call);

 private:
  SystemCall call_;
  int error_;
};

// A transient read error: reads deliver the given number of bytes in total, the next one reports
// EIO, and later ones would succeed again.
class FailingRead {
 public:
  explicit FailingRead(std::size_t delivered);

  // Fails the test when that many bytes were never read.
  ~FailingRead();

  FailingRead& operator=(FailingRead&&) = delete;  // neither copyable nor movable
};

// Limits how many bytes one write transfers: short writes. 0 makes write(2) return 0.
class ShortWrites {
 public:
  explicit ShortWrites(std::size_t most);

  // Fails the test when no write was longer.
  ~ShortWrites();

  ShortWrites& operator=(ShortWrites&&) = delete;  // neither copyable nor movable
};

// Makes reading a folder fail with this error after so many entries, "." and ".." included.
class FailingFolder {
 public:
  FailingFolder(int delivered, int error);

  // Fails the test when no folder was read so far.
  ~FailingFolder();

  FailingFolder& operator=(FailingFolder&&) = delete;  // neither copyable nor movable
};

}  // namespace quen::tests
