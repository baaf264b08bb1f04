// Where findings go, and how the environment sets that.
#pragma once

#include <string>

namespace quen::checked {

// The environment variable QUEN_IO_CHECKED holds words separated by commas: "abort" ends the
// process with SIGABRT at the first finding; "passive" calls no operation that the module does not
// call itself; "report" is the default. QUEN_IO_CHECKED_LOG names a file that findings are appended
// to instead of being written to standard error.
struct Settings {
  bool abort = false;
  bool passive = false;
  std::string log;
};

// Read once, at the first call.
const Settings& settings();

// Reports a finding as a line "quen_io_checked: <entry point>: <subject> <claim><details>". The
// subject is an operation or a parameter; all three are literals. The same claim about the same
// subject is printed once for each entry point, and the number of all findings when the process
// exits.
void report(const char* entryPoint, const char* subject, const char* claim,
            const std::string& details = "");

// Ends the process with SIGABRT, after a finding that would make the module wait forever.
[[noreturn]] void stop(const char* entryPoint, const char* reason);

// The bytes in quotes, unprintable ones as \xNN, truncated if there are many.
std::string shown(const char* text);
std::string shown(const std::string& bytes);

}  // namespace quen::checked
