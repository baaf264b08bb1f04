// An open directory stream (opendir(3)). Private to the module.
#pragma once

#include <dirent.h>

#include <filesystem>
#include <system_error>

namespace quen::io {

class OpenFolder {
 public:
  // Follows a symbolic link. If `error` is set, the folder is not open and next() may not be
  // called. opendir sets O_CLOEXEC.
  OpenFolder(const std::filesystem::path& path, std::error_code& error);
  ~OpenFolder();
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;

  // The name of the next entry except "." and "..", in directory order, valid until the next call.
  // Null at the end, and with `error` set after a failure.
  const char* next(std::error_code& error);

 private:
  DIR* folder_;
};

}  // namespace quen::io
