// The guard of recursive removal against its plain form. Nothing is removed here.

#include <filesystem>

#include "fuzz/fuzz.h"
#include "fuzz/judged.h"

namespace fs = std::filesystem;
using namespace quen::fuzz;
using namespace quen::differential;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The home folders, and links to them.
  static const bool arranged = [] {
    judge().inBoth([](const fs::path& folder) {
      fs::create_directories(folder / "home/below");
      fs::create_directories(folder / "quen/home");
      fs::create_symlink("home", folder / "link");
      fs::create_symlink("quen", folder / "q");
    });
    return true;
  }();
  require(arranged, "folders");
  requireSameCall("Quen_isUnsafeRecursiveDeletePath", {text(Input(data, size).text())});
  return 0;
}
