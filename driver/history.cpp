#include "driver/history.h"

#include <readline/history.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>  // what readline's headers leave out
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "driver/call.h"
#include "driver/commands.h"
#include "driver/files.h"
#include "driver/text.h"
#include "quen/io/entry_points.h"

namespace quen::driver {

namespace {

constexpr int kMostLines = 1000;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// None when the environment names no place for it.
std::optional<std::string> historyFolder() {
  const std::string state = environment("XDG_STATE_HOME");
  if (state.starts_with('/')) return state + "/quen-io";
  const std::string home = environment("HOME");
  if (home.starts_with('/')) return home + "/.local/state/quen-io";
  return std::nullopt;
}

// By its row in the table: a module that makes no folders keeps history where there is one.
void makeFolder(const std::string& folder) {
  for (const EntryPoint& entry : entryPoints()) {
    if (entry.shortName == "FolderPath._mkdirsNative") callEntryPoint(entry, {"text:" + folder});
  }
}

std::string fileIn(const std::string& folder) { return folder + "/history"; }

}  // namespace

void loadHistory() {
  using_history();
  stifle_history(kMostLines);
  const std::optional<std::string> folder = historyFolder();
  if (!folder || !quen_io_FileInputStream__existsPath(fileIn(*folder).c_str())) return;

  std::istringstream lines(readFile(fileIn(*folder)));
  for (std::string line; std::getline(lines, line);) add_history(line.c_str());
}

// What was typed is nobody else's business.
void saveHistory() {
  const std::optional<std::string> folder = historyFolder();
  if (!folder) return;

  std::string lines;
  for (int i = 0; i < history_length; ++i) {
    lines += std::string(history_get(history_base + i)->line) + '\n';
  }
  const mode_t usual = umask(S_IRWXG | S_IRWXO);
  makeFolder(*folder);
  quen_data_internal_DocumentIndexStore__writeAtomic(fileIn(*folder).c_str(), lines.c_str());
  umask(usual);
  if (const auto raised = small::takeException()) {
    complain("history not kept in " + inQuotes(*folder) + ": " + describe(*raised));
  }
}

}  // namespace quen::driver
