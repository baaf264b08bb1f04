// Moments inside an entry point that a test cannot reach otherwise: right before it calls the C
// library, and when that reports a failure that no file system at hand has.
//
// The program's own definitions of these functions come before the C library's, for the standard
// library as well. Only calls of the thread that made the object are counted.
#pragma once

#include <cstddef>
#include <functional>

namespace quen::tests {

enum class SystemCall { kStatus, kMakeDirectory, kOpen, kClose };

// What somebody else does right before the nth of these calls from here on.
//
//   const Before makingIt(SystemCall::kMakeDirectory, [&] { fs::create_directory(folder); });
//   quen_io_FolderPath__mkdirNative(folder.c_str());
class Before {
 public:
  Before(SystemCall call, std::function<void()> step, int nth = 1);

  // Fails the test when there were fewer calls.
  ~Before();

  Before(const Before&) = delete;
  Before& operator=(const Before&) = delete;

  // For the definitions of the calls: one is about to be made.
  static void come(SystemCall call);

 private:
  SystemCall call_;
  std::function<void()> step_;
  int remaining_;
};

// Lets the next close of a file report an input/output error; the file is closed all the same.
class FailingClose {
 public:
  FailingClose();

  // Fails the test when no file was closed.
  ~FailingClose();

  FailingClose(const FailingClose&) = delete;
  FailingClose& operator=(const FailingClose&) = delete;
};

// A passing defect of the medium: reads deliver so many bytes all together, then one reports an
// input/output error, and those after it would go on.
class FailingRead {
 public:
  explicit FailingRead(std::size_t delivered);

  // Fails the test when nobody read that far.
  ~FailingRead();

  FailingRead(const FailingRead&) = delete;
  FailingRead& operator=(const FailingRead&) = delete;
};

}  // namespace quen::tests
