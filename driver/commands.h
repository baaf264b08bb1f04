// The commands, each implemented in the file of its name, and shared declarations.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "driver/help.h"

namespace quen::driver {

// Exit statuses, which the commands return.
inline constexpr int kDone = 0;
inline constexpr int kRaised = 1;
inline constexpr int kUsage = 2;
inline constexpr int kNotPublished = 3;

struct IndexOptions {
  std::string folder;
  std::string output = "quen-io-index.jsonl";
  std::int64_t maxTextBytes = std::int64_t{16} << 20;
  std::optional<std::int64_t> maxDepth;
  bool oneFileSystem = false;
  std::vector<std::string> excluded;  // patterns
  bool quiet = false;
};

struct CallOptions {
  std::string entry;
  std::vector<std::string> arguments;
  bool json = false;
  bool trace = false;
  bool systemCalls = false;
};

struct CheckOptions {
  std::vector<std::string> files;
  bool listOnStandardInput = false;
  std::string list;  // a file of names; "-" is standard input
};

struct ListOptions {
  std::vector<std::string> words;  // names of entry points or parts of them; empty: all
  bool json = false;
};

int runIndex(const IndexOptions& options);
int runCall(const CallOptions& options);
int runCheck(const CheckOptions& options);
int runList(const ListOptions& options);
int runShell();
int runDumpCommands();

// The help of the shell, for --help and the shell's command `help`.
HelpSection shellHelp();

// Prints one line on standard error.
void complain(const std::string& words);

}  // namespace quen::driver
