// A temporary folder for checks that need file-system entries. Private to the kit.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace quen::conformance {

class ScratchFolder {
 public:
  // While it lives, new folders are made inside another folder, instead of in that of the system
  // for temporary files.
  class Inside {
   public:
    explicit Inside(const std::filesystem::path& folder) : before_(parent()) { parent() = folder; }
    ~Inside() { parent() = before_; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    std::filesystem::path before_;
  };

  ScratchFolder() {
    std::string name = parent() / "quen-io-conformance-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder: " + name);
    path_ = name;
  }

  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  static std::filesystem::path& parent() {
    static std::filesystem::path folder = std::filesystem::temp_directory_path();
    return folder;
  }

  std::filesystem::path path_;
};

}  // namespace quen::conformance
