#include "driver/history.h"

#include <fcntl.h>
#include <readline/history.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>  // not included by readline's headers
#include <cstdlib>
#include <sstream>
#include <vector>

#include "driver/call.h"
#include "driver/commands.h"
#include "driver/files.h"
#include "driver/text.h"
#include "driver/values.h"
#include "quen/io/entry_points.h"

namespace quen::driver {

namespace {

constexpr int kMostLines = 1000;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// None if neither XDG_STATE_HOME nor HOME is an absolute path.
std::optional<std::string> historyFolder() {
  const std::string state = environment("XDG_STATE_HOME");
  if (state.starts_with('/')) return state + "/quen-io";
  const std::string home = environment("HOME");
  if (home.starts_with('/')) return home + "/.local/state/quen-io";
  return std::nullopt;
}

std::string fileIn(const std::string& folder) { return folder + "/history"; }

// A FIFO or a device keeps nothing and could block.
bool isOtherThanAFile(const std::string& path) {
  return quen_io_FileInputStream__existsPath(path.c_str()) &&
         !quen_io_FileInputStream__isRegularPath(path.c_str());
}

// The history may contain private data, so new files and folders are readable by the owner only.
class PrivateMode {
 public:
  PrivateMode() : usual_(umask(S_IRWXG | S_IRWXO)) {}
  ~PrivateMode() { umask(usual_); }
  PrivateMode(const PrivateMode&) = delete;
  PrivateMode& operator=(const PrivateMode&) = delete;

 private:
  mode_t usual_;
};

// Locks the history, so that a line that another shell appends is not lost while the file is
// truncated to its last lines. The folder is locked, because the file is replaced. On file systems
// without flock(2), there is no lock.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_ >= 0) static_cast<void>(flock(folder_, LOCK_EX));
  }
  ~FolderLock() {
    if (folder_ >= 0) close(folder_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int folder_;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Replaces a file of more than twice the kept number of lines by its last lines.
void shorten(const std::string& file) {
  const std::vector<std::string> lines = linesOf(readFile(file));
  if (lines.size() <= 2 * std::size_t{kMostLines}) return;
  std::string kept;
  for (auto line = lines.end() - kMostLines; line != lines.end(); ++line) kept += *line + '\n';
  const PrivateMode mode;
  quen_data_internal_DocumentIndexStore__writeAtomic(file.c_str(), kept.c_str());
  small::takeException();  // failure is harmless: the file just stays long
}

}  // namespace

void History::load() {
  using_history();
  stifle_history(kMostLines);
  folder_ = historyFolder();
  if (!folder_ || !quen_io_FileInputStream__existsPath(fileIn(*folder_).c_str())) return;

  try {
    const FolderLock lock(*folder_);
    for (const std::string& line : linesOf(readFile(fileIn(*folder_)))) add_history(line.c_str());
    shorten(fileIn(*folder_));
  } catch (const UsageError& error) {
    complain("history not read: " + std::string(error.what()));
    if (isOtherThanAFile(fileIn(*folder_))) folder_.reset();
  }
}

void History::add(const std::string& line) {
  const HIST_ENTRY* last = history_get(history_base + history_length - 1);
  if (line.empty() || (last != nullptr && line == last->line)) return;
  add_history(line.c_str());
  if (folder_) append(line);
}

void History::append(const std::string& line) {
  const PrivateMode mode;
  quen_io_FolderPath__mkdirsNative(folder_->c_str());
  std::optional<small::Exception> raised = small::takeException();
  if (!raised) {
    const FolderLock lock(*folder_);
    quen_io_FileWriter__appendPath(fileIn(*folder_).c_str(), (line + '\n').c_str());
    raised = small::takeException();
  }
  if (raised) {
    complain("history not kept in " + inQuotes(*folder_) + ": " + describe(*raised));
    folder_.reset();
  }
}

}  // namespace quen::driver
