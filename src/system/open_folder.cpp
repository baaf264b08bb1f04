#include "system/open_folder.h"

#include <cerrno>
#include <string_view>

#include "system/cancellation.h"

namespace quen::io {

namespace {

bool isDotOrDotDot(std::string_view name) { return name == "." || name == ".."; }

}  // namespace

OpenFolder::OpenFolder(const std::filesystem::path& path, std::error_code& error)
    : folder_(::opendir(path.c_str())) {
  error.assign(folder_ == nullptr ? errno : 0, std::generic_category());
}

// closedir fails only with EBADF, and may be a cancellation point (pthreads(7)).
OpenFolder::~OpenFolder() {
  const WithoutCancellation protect;
  if (folder_ != nullptr) ::closedir(folder_);
}

// readdir returns null both at the end and on failure, and sets errno only on failure (readdir(3)).
const char* OpenFolder::next(std::error_code& error) {
  const dirent* entry = nullptr;
  do {
    errno = 0;
    entry = ::readdir(folder_);
  } while (entry != nullptr && isDotOrDotDot(entry->d_name));

  error.assign(entry == nullptr ? errno : 0, std::generic_category());
  return entry == nullptr ? nullptr : entry->d_name;
}

}  // namespace quen::io
