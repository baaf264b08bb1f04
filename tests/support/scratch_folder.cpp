#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace quen::tests {

ScratchFolder::ScratchFolder() {
  std::string name = fs::temp_directory_path() / "quen-io-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder: " + name);
  // In canonical form, so that tests can compare canonical paths with it.
  path_ = fs::canonical(name);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  for (fs::recursive_directory_iterator entry(path_, ignored), end; entry != end;
       entry.increment(ignored)) {
    EXPECT_EQ(entry->path().filename().native().find(".tmp-"), std::string::npos)
        << "left behind: " << entry->path();
    if (entry->symlink_status(ignored).type() == fs::file_type::directory) {
      fs::permissions(entry->path(), fs::perms::owner_all, ignored);
    }
  }
  fs::remove_all(path_, ignored);
}

fs::path ScratchFolder::file(std::string_view name, std::string_view content) const {
  fs::path path = path_ / name;
  std::ofstream(path, std::ios::binary)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
  return path;
}

fs::path ScratchFolder::folder(std::string_view name) const {
  fs::path path = path_ / name;
  fs::create_directories(path);
  return path;
}

fs::path ScratchFolder::link(std::string_view name, const fs::path& target) const {
  fs::path path = path_ / name;
  fs::create_symlink(target, path);
  return path;
}

std::string contents(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream) << "cannot read " << file;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::string namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
  return joined;
}

}  // namespace quen::tests
