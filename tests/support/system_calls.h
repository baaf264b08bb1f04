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

// Makes the next fclose report EIO; the file is closed anyway.
class FailingClose {
 public:
  FailingClose();

  // Fails the test when no file was closed.
  ~FailingClose();

  FailingClose& operator=(FailingClose&&) = delete;  // neither copyable nor movable
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

// Makes the next fstat report EIO.
class FailingFileStatus {
 public:
  FailingFileStatus();

  // Fails the test when fstat was not called.
  ~FailingFileStatus();

  FailingFileStatus(const FailingFileStatus&) = delete;
  FailingFileStatus& operator=(const FailingFileStatus&) = delete;
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

// Makes the next read report EINTR, as if a signal had interrupted it.
class InterruptedRead {
 public:
  InterruptedRead();

  // Fails the test when nothing was read.
  ~InterruptedRead();

  InterruptedRead(const InterruptedRead&) = delete;
  InterruptedRead& operator=(const InterruptedRead&) = delete;
};

}  // namespace quen::tests
