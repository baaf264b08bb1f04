// A folder of the kit's own, for entries to ask about. Private to the kit.
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
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "quen-io-conformance-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder: " + name);
    path_ = name;
  }

  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace quen::conformance
