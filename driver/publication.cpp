#include "driver/publication.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "driver/text.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

// The module names its temporary files TARGET.tmp-N and counts from 1 in each process; the driver
// publishes only once.
std::string temporaryOf(const std::string& path) { return path + ".tmp-1"; }

// Sets the umask so that the module creates its temporary file with the permissions of the file
// that it replaces; otherwise a private index would be readable by others for a moment. open(2)
// requests no execute permission, so this is restored afterwards with chmod.
class KeptPermissions {
 public:
  explicit KeptPermissions(const std::string& path) : path_(path) {
    struct stat older = {};
    if (stat(path.c_str(), &older) != 0) return;
    permissions_ = older.st_mode & kPermissions;
    usual_ = umask(kPermissions & ~*permissions_);
  }
  ~KeptPermissions() {
    if (permissions_) umask(usual_);
  }
  KeptPermissions(const KeptPermissions&) = delete;
  KeptPermissions& operator=(const KeptPermissions&) = delete;

  void giveBack() const {
    if (permissions_ && (*permissions_ & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0) {
      static_cast<void>(chmod(path_.c_str(), *permissions_));
    }
  }

 private:
  const std::string& path_;
  std::optional<mode_t> permissions_;
  mode_t usual_ = 0;
};

// The reason why no file can be created there, if access(2) reports one for the folder.
std::string reasonFor(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path();
  if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0) return "";
  return ": " + std::generic_category().message(errno);
}

}  // namespace

std::optional<std::string> Publication::refusal() const {
  const char* path = path_.c_str();
  if (isStandardOutput() || !quen_io_FileInputStream__existsPath(path)) return std::nullopt;
  if (quen_io_FileInputStream__isRegularPath(path)) return std::nullopt;
  return "not a regular file: " + inQuotes(path_);
}

std::optional<std::string> Publication::publish(const std::string& contents) {
  if (isStandardOutput()) {
    std::cout << contents;
    return std::nullopt;  // main reports lost output at exit
  }
  const std::lock_guard lock(publishing_);
  const KeptPermissions permissions(path_);
  quen_data_internal_DocumentIndexStore__writeAtomic(path_.c_str(), contents.c_str());
  if (const auto raised = small::takeException()) {
    return inQuotes(path_) + ": " + escaped(raised->message) + reasonFor(path_);
  }
  permissions.giveBack();
  published_ = true;
  return std::nullopt;
}

bool Publication::abandon() {
  constexpr std::chrono::milliseconds kMoment(300);
  std::unique_lock lock(publishing_, kMoment);
  if (lock.owns_lock()) {
    lock.release();  // stays locked, so that no publication can start
    return published_;
  }
  return unlink(temporaryOf(path_).c_str()) != 0;  // fails if the file was already renamed
}

}  // namespace quen::driver
