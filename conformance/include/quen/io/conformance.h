// The conformance kit: checks whether a runtime implements the operations of quen/io/operations.h
// as the module needs them.
//
// The kit calls the operations directly, as the module would. For what they do not offer, such as
// creating a path object or reading a String, it calls an adapter that the authors of the runtime
// write; main_template.cpp is the program to start from.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace quen::conformance {

// An exception that the operation Quen_raise made pending.
struct Exception {
  std::string className;  // as passed to Quen_raise
  std::string message;
};

// What the kit needs from a runtime besides the operations. An object is an untyped pointer, as in
// the operations themselves.
//
// Objects that are created here, or read from a list, have to live until the run has ended, or
// until the runtime finds that neither a thread's stack nor another object refers to them. The kit
// calls the adapter from several threads at once, on each of which except the first it calls
// enterThread first.
//
// A function that returns null instead of a new object does not end the run: the requirements that
// need the object are reported as not met.
//
// Only the functions without a default implementation are needed; the others are options for
// certain kinds of runtime.
class Adapter {
 public:
  virtual ~Adapter() = default;

  // A new path object that is no FolderPath, with the text as its "_path".
  virtual void* newPath(const std::string& text) const = 0;

  // A new FolderPath with the text as its "_path".
  virtual void* newFolderPath(const std::string& text) const = 0;

  // A new object of a subclass of FolderPath with the text as its "_path". Null if there is no such
  // class; the requirements that need it are then skipped.
  virtual void* newFolderSubclass(const std::string& text) const;

  // A new path object without a path: its "_path" is null.
  virtual void* newPathWithoutText() const = 0;

  // A new String of exactly these bytes.
  virtual void* newString(const std::string& bytes) const = 0;

  // A new Byte[] with these bytes.
  virtual void* newByteArray(const std::vector<std::uint8_t>& bytes) const = 0;

  // A new object that is neither a path object nor a String nor a Byte[].
  virtual void* newOtherObject() const = 0;

  // The bytes of a String.
  virtual std::string stringBytes(void* string) const = 0;

  // The elements of an ArrayList.
  virtual std::vector<void*> listElements(void* list) const = 0;

  // The bytes of a Byte[].
  virtual std::vector<std::uint8_t> byteArrayContents(void* array) const = 0;

  // Whether a path object is a FolderPath.
  virtual bool isFolderPath(void* path) const = 0;

  // Takes the pending exception of this thread, so that none is pending afterwards. Returns none if
  // none was pending.
  virtual std::optional<Exception> takeException() const = 0;

  // Called first and last on each thread that the kit starts, for runtimes with which threads have
  // to be registered.
  virtual void enterThread() const;
  virtual void leaveThread() const;

  // Whether two handles denote the same object, for runtimes in which an object may have several.
  // None if unknown; different pointers are then not taken for different objects.
  virtual std::optional<bool> sameObject(void* one, void* other) const;

  // Runs a collection, for runtimes with a garbage collector. The kit calls it at the beginning and
  // at the end of every operation that it calls, as if every operation collected; except for
  // Quen_raise and Quen_hasPendingError, which may not. It is called tens of thousands of times.
  virtual void collect() const;

  // Whether the runtime has one thread only. The requirements that need several are then skipped.
  virtual bool oneThreadOnly() const;

  // Called around every wait of a thread for another one, and around every entry point. A runtime
  // with a global lock gives it up in the first and takes it again in the second: the other thread
  // may need it, and entry points may not be called with it (docs/boundary.md, "Locks").
  virtual void beforeWaiting() const;
  virtual void afterWaiting() const;

  // Called first in each process that the kit forks, for runtimes that have to be told of a fork.
  virtual void afterFork() const;

  // How long a requirement may take; 10 seconds unless overridden. More for slow runtimes.
  virtual std::chrono::milliseconds patience() const;
};

// How the kit runs, as options of its command line say.
struct Options {
  enum class Format { kText, kJson, kJUnit };

  Format format = Format::kText;

  // Check all requirements in this process, for a debugger.
  bool oneProcess = false;

  // Let the requirements count that only careful embedders want.
  bool strict = false;

  // Instead of the patience of the adapter.
  std::optional<std::chrono::milliseconds> patience;

  // A file of requirements that the runtime does not meet yet: a line "REQUIREMENT | REASON" for
  // each, in UTF-8; empty lines and lines that begin with '#' are ignored. None if empty.
  std::string expectedFailures;

  // Check only the requirements that contain one of these words; all if there are none.
  std::vector<std::string> words;
};

// Checks every requirement and prints one line for each:
//
//   met      <requirement>
//   NOT MET  <requirement>: <what came instead>
//   advice   <requirement>: <what came instead>, if only careful embedders want it
//   expected <requirement>: <the reason in the file of expected failures>
//   NOW MET  <requirement>: <the reason in that file, which is out of date>
//   skipped  <requirement>: <what the adapter does not have>
//
// and finally "N requirements, M not met", with the numbers of the other lines. Returns 0 if none
// is not met or now met, otherwise 1, and 2 if the file of expected failures cannot be used.
//
// Each requirement is checked in a forked process of its own. If the runtime crashes, hangs, exits
// or ends the thread there, the requirement is not met, and the line tells the signal, the
// patience or the exit status. What the runtime prints to standard output meanwhile goes to
// standard error. The adapter and the runtime have to survive a fork of the calling thread.
//
// In one process, each line is flushed before the next requirement is checked: if the runtime
// crashes or hangs, the cause is the requirement after the last line. If it leaves a thread
// that never returns, the function ends the process with _Exit(1) after printing the summary,
// because such a process cannot exit normally.
//
// Call it on a thread that runs language code; some requirements call the module.
int runConformance(const Adapter& adapter, std::ostream& out, const Options& options = {});

// The same with the options of the command line of a program, which "--help" explains. Prints to
// standard output. Returns 2 after printing a usage error to standard error.
int runConformance(const Adapter& adapter, int count, const char* const* arguments);

}  // namespace quen::conformance
