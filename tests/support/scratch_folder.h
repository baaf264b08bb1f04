// A temporary folder of one test, removed with its contents when the test ends.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quen::tests {

class ScratchFolder {
 public:
  ScratchFolder();

  // Fails the test when a temporary file of an atomic write is left behind.
  ~ScratchFolder();

  ScratchFolder& operator=(ScratchFolder&&) = delete;  // neither copyable nor movable

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  // Each creates an entry of this name and returns its path.
  std::filesystem::path file(std::string_view name, std::string_view content = "") const;
  std::filesystem::path folder(std::string_view name) const;
  std::filesystem::path link(std::string_view name, const std::filesystem::path& target) const;

 private:
  std::filesystem::path path_;
};

// The bytes of a file; fails the test when it cannot be read.
std::string contents(const std::filesystem::path& file);

// The sorted names in a folder.
std::string namesIn(const std::filesystem::path& folder);

}  // namespace quen::tests
