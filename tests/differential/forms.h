// Loads the module and the plain form into one process, and calls their entry points with the same
// arguments.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quen::differential {

// One argument of a call. A text that begins with '@' is a path below the form's own folder.
struct Argument {
  enum class Kind { kNull, kText, kPath, kFolderPath, kFilePath, kString, kBytes, kNumber };

  Kind kind = Kind::kNull;
  std::string text = {};  // of a text, a path, a String or a Byte[]
  std::int64_t number = 0;
};

Argument null();
Argument text(std::string_view bytes);
Argument path(std::string_view text);
Argument folderPath(std::string_view text);
Argument filePath(std::string_view text);
Argument bytes(std::string_view contents);
Argument emptyBytes(std::size_t length);
Argument number(std::int64_t value);

using Arguments = std::vector<Argument>;

// An entry point and the roles of its arguments:
//
//   o  a receiver or base       d  an operand, object or text    p  the text of a path
//   n  a new name               t  a text to write               B  a Byte[]
//   #  an offset or a count     h  a handle                      a  whether to append
struct EntryPoint {
  std::string_view name;
  std::string_view roles;
  const char* symbol;
  std::string (*call)(void* symbol, const std::vector<struct Passed>& passed);
};

// All of them.
const std::vector<EntryPoint>& entryPoints();
const EntryPoint& entryPoint(std::string_view name);

// The conditions of one call: the state and the behaviour of the runtime.
struct Circumstances {
  bool exceptionPending = false;          // raised before the call
  int throwingOperation = -1;             // index of the operation that throws std::bad_alloc
  bool refusesBytes = false;              // rejects every Byte[], without an error text
  bool knowsQualifiedNamesOnly = false;   // class tests fail for short names
  std::vector<std::string> windowsRoots;  // path texts with an explicit Windows root
  bool entersFolder = true;               // else the working directory stays as it is
  std::function<void(const std::string& operation)> interfere = {};  // called before each operation
};

// Everything observable of a call; the form's folder is written '@'.
struct Outcome {
  std::string result;
  std::string exception;           // raised, as "Class: message"
  std::string thrown;              // type of the C++ exception that left the entry point
  std::vector<std::string> calls;  // of runtime operations, in order
  std::string bytes;               // contents of the Byte[] argument afterwards
  bool leaksDescriptor = false;    // not determined for entry points of writer handles

  bool operator==(const Outcome&) const = default;
};

std::string describe(const Outcome& outcome);

// What surrounds the calls of a form.
struct Surroundings {
  // Other threads make calls at the same time, each with a working directory of its own. The
  // descriptors of the process are then not counted.
  bool otherThreads = false;

  // Called right before and right after each call of an entry point.
  std::function<void()> before = [] {};
  std::function<void()> after = [] {};
};

// An implementation under test: the module or the plain form.
class Form {
 public:
  // Loads the library; exits the process on failure. '@' in paths stands for `folder`.
  Form(std::string name, const std::string& library, std::filesystem::path folder,
       Surroundings surroundings = {});

  const std::string& name() const { return name_; }
  const std::filesystem::path& folder() const { return folder_; }

  // Calls with the form's folder as working directory, which is created again if it is missing,
  // unless the circumstances say otherwise.
  Outcome call(const EntryPoint& entry, const Arguments& arguments,
               const Circumstances& circumstances = {}) const;

  // Writes '@' for the form's folder, and "form" for the name of its parent, which relative paths
  // may contain. call() has done so for its own folder.
  void hideFolder(Outcome& outcome) const;

  // Replaces '@' in a text or path.
  std::string expand(std::string_view text) const;

 private:
  std::string name_;
  std::filesystem::path folder_;
  Surroundings surroundings_;
  std::vector<void*> symbols_;  // in the order of entryPoints()
};

}  // namespace quen::differential
