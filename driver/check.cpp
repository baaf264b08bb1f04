// quen-io check: whether files are the text they should be, as the readers of the module see it.

#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "driver/commands.h"
#include "driver/progress.h"
#include "driver/terminal.h"
#include "driver/text.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

const char* const kCheckHelp =
    "A file named *.toml is checked by TOML's rules for bytes (UTF-8 without a raw U+0000), any "
    "other\n"
    "to be UTF-8. Each that fails is told on a line of its own: FILE: MESSAGE.";

namespace {

// A folder reads as an empty text, so it is looked for first.
std::optional<std::string> faultOf(const std::string& file) {
  const small::Scope scope;
  if (quen_io_Path__isDirectory(small::newPath(file))) return "Path is a directory";
  try {
    if (file.ends_with(".toml")) {
      quen_io_toml_TOML__readStrictPath(file.c_str());
    } else {
      quen_io_FileReader__readAllTextPath(file.c_str());
    }
  } catch (const std::exception& failure) {  // more than memory holds
    small::takeException();
    return failure.what();
  }
  const std::optional<small::Exception> raised = small::takeException();
  if (!raised) return std::nullopt;
  return raised->message;
}

}  // namespace

int runCheck(const std::vector<std::string>& files) {
  Progress progress;
  std::size_t checked = 0;
  std::int64_t bytes = 0;
  int status = kDone;
  for (const std::string& file : files) {
    progress.show(checked, bytes, file);
    if (const auto fault = faultOf(file)) {
      progress.erase();
      const std::string reason = styled(std::cout, Style::kFailure, escaped(*fault));
      std::cout << escaped(file) << ": " << reason << '\n' << std::flush;
      status = kRaised;
    }
    ++checked;
    bytes += quen_io_FileInputStream__sizePath(file.c_str());
  }
  return status;
}

}  // namespace quen::driver
