// quen-io check: whether files are valid UTF-8 or TOML input, as judged by the module's readers.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include "driver/commands.h"
#include "driver/progress.h"
#include "driver/reasons.h"
#include "driver/standard_input.h"
#include "driver/terminal.h"
#include "driver/text.h"
#include "driver/values.h"
#include "driver/walk.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

// The reader returns an empty text for a folder, so folders are detected first.
std::optional<std::string> faultOf(const std::string& file, const std::string& path) {
  const small::Scope scope;
  if (quen_io_Path__isDirectory(small::newPath(path))) return "Path is a directory";
  try {
    if (file.ends_with(".toml")) {
      quen_io_toml_TOML__readStrictPath(path.c_str());
    } else {
      quen_io_FileReader__readAllTextPath(path.c_str());
    }
  } catch (const std::exception& failure) {  // std::length_error or std::bad_alloc
    small::takeException();
    return failure.what();
  }
  const std::optional<small::Exception> raised = small::takeException();
  if (!raised) return std::nullopt;
  return raised->message + readingReason(path);
}

class Check {
 public:
  int status() const { return status_; }

  // Checks an operand: a file, a folder with its whole tree, or standard input.
  void operand(const std::string& name) {
    if (name == "-") {
      standardInput();
    } else if (quen_io_Path__isDirectory(small::newPath(name))) {
      folder(name);
    } else {
      file(name);
    }
  }

  // Checks the files of a list of names, each terminated by a zero byte.
  void list(std::istream& names) {
    for (std::string name; std::getline(names, name, '\0');) {
      const small::Scope scope;
      if (name.empty()) {
        tell("", "Path is empty");
      } else {
        file(name);
      }
    }
  }

 private:
  void file(const std::string& name) {
    progress_.show(checked_++, bytes_, name);
    bytes_ += quen_io_FileInputStream__sizePath(name.c_str());
    if (const auto fault = faultOf(name, name)) tell(name, *fault);
  }

  void standardInput() {
    try {
      const StandardInput input;
      if (const auto fault = faultOf("-", input.path())) tell("-", *fault);
    } catch (const std::system_error& failure) {
      tell("-", failure.what());
    }
    ++checked_;
  }

  // Skips files of size 0, because those of /proc may block or be endless, and also links and
  // special files.
  void folder(const std::string& root) {
    const auto visit = [&](const Entry& entry) {
      const std::string name = below(root, entry.path);
      if (!entry.error.empty()) tell(name, entry.error);
      if (entry.kind == Kind::kFile && entry.size > 0) file(name);
    };
    walk({.root = root, .maxTextBytes = kReadNone, .visit = visit});
  }

  static std::string below(const std::string& root, const std::string& path) {
    if (path == ".") return root;
    return root.ends_with('/') ? root + path : root + '/' + path;
  }

  void tell(const std::string& file, const std::string& fault) {
    progress_.erase();
    const std::string reason = styled(std::cout, Style::kFailure, escaped(fault));
    std::cout << escaped(file) << ": " << reason << '\n' << std::flush;
    status_ = kRaised;
  }

  static constexpr std::int64_t kReadNone = -1;

  Progress progress_;
  std::size_t checked_ = 0;
  std::int64_t bytes_ = 0;
  int status_ = kDone;
};

void checkList(Check& check, const std::string& path) {
  std::ifstream names(path);
  if (!names) throw UsageError("cannot read " + inQuotes(path) + readingReason(path));
  check.list(names);
  if (names.bad()) throw UsageError("cannot read " + inQuotes(path) + readingReason(path));
}

// std::cin reports a read error as end of file, so std::ferror is checked.
void checkListFromStandardInput(Check& check) {
  check.list(std::cin);
  if (std::ferror(stdin) != 0) throw UsageError("cannot read the list on standard input");
}

}  // namespace

int runCheck(const CheckOptions& options) {
  const small::Scope scope;
  const std::string list = options.listOnStandardInput ? "-" : options.list;
  if (list.empty() && options.files.empty()) throw UsageError("FILE is missing (see --help)");
  if (!list.empty() && !options.files.empty()) {
    throw UsageError("not expected beside a list of files: " + inQuotes(options.files.front()));
  }
  Check check;
  for (const std::string& name : options.files) check.operand(name);
  if (list == "-") {
    checkListFromStandardInput(check);
  } else if (!list.empty()) {
    checkList(check, list);
  }
  return check.status();
}

}  // namespace quen::driver
