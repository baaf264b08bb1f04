// The subcommands, each in the file of its name, and what they have in common.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quen::driver {

// What a subcommand gives back is the exit status.
inline constexpr int kDone = 0;
inline constexpr int kRaised = 1;
inline constexpr int kUsage = 2;
inline constexpr int kNotPublished = 3;
inline constexpr int kInterrupted = 130;

struct IndexOptions {
  std::string folder;
  std::string output = "quen-io-index.jsonl";
  std::int64_t maxTextBytes = std::int64_t{16} << 20;
};

struct CallOptions {
  bool json = false;
  bool trace = false;
};

int runIndex(const IndexOptions& options);
int runCall(const std::string& name, const std::vector<std::string>& words,
            const CallOptions& options);
int runCheck(const std::vector<std::string>& files);
int runList(const std::vector<std::string>& names);
int runShell();

// What --help tells about them.
extern const char* const kIndexHelp;
extern const char* const kCallHelp;
extern const char* const kCheckHelp;
extern const char* const kShellHelp;

// One line on standard error.
void complain(const std::string& words);

}  // namespace quen::driver
