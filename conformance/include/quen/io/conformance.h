// Asks a runtime whether it does what the module needs of its 20 operations.
//
// The operations are called directly, as the module would call them. What they have no word for,
// such as making a path object or reading a String, is asked of an adapter, which the engineers of
// the runtime write: main_template.cpp is the program to start from.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace quen::conformance {

// An exception that the operation Quen_raise made pending.
struct Exception {
  std::string className;  // as it was given to Quen_raise
  std::string message;
};

// What a runtime does besides the operations. An object is an untyped pointer, as in the operations
// themselves.
//
// Objects that are made here, or read from a list, have to live until the run has ended or until
// the runtime finds that neither the stack of a thread nor another object refers to them. The run
// asks from several threads at once, and each but the first begins with enterThread.
//
// A maker that gives null does not end the run: what cannot be asked without the object is not met.
class Adapter {
 public:
  virtual ~Adapter() = default;

  // A new path object that is no FolderPath, with the text as its "_path".
  virtual void* newPath(const std::string& text) const = 0;

  // A new FolderPath with the text as its "_path".
  virtual void* newFolderPath(const std::string& text) const = 0;

  // A new object of a class below FolderPath with the text as its "_path". Null when there is no
  // such class: what would be asked of it is skipped then.
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

  // Takes the exception that is pending on this thread; none is pending afterwards. None when none
  // was.
  virtual std::optional<Exception> takeException() const = 0;

  // Called first and last on each thread that the run starts, for runtimes that have to know the
  // threads on which language code runs.
  virtual void enterThread() const;
  virtual void leaveThread() const;
};

// Asks for every requirement and prints one line for each:
//
//   met      <requirement>
//   NOT MET  <requirement>: <what came instead>
//   skipped  <requirement>: <what the adapter does not have>
//
// and in the end "N requirements, M not met", with ", K skipped" when some were. Gives 0 when none
// is unmet, 1 otherwise. A line is out before the next requirement is asked for: should the runtime
// crash or never return, the culprit is the one behind the last line.
//
// To be called once, and on a thread that runs language code. The requirement that is asked for
// last needs the module itself, and a runtime that fails it keeps a thread in there for ever. Since
// such a process cannot exit in order, it then ends here, with status 1 and after the summary.
int runConformance(const Adapter& adapter, std::ostream& out);

}  // namespace quen::conformance
