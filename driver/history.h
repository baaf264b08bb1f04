// The persistent history of the lines typed into the shell.
#pragma once

#include <optional>
#include <string>

namespace quen::driver {

class History {
 public:
  // Reads the kept lines into readline's history. Warns when they cannot be read.
  void load();

  // Adds a line to readline's history and immediately to the file, so that it survives if the shell
  // is killed, and lines of concurrent shells are kept too. Warns once if it cannot be written.
  void add(const std::string& line);

 private:
  void append(const std::string& line);

  std::optional<std::string> folder_;  // none: nothing is kept
};

}  // namespace quen::driver
