// The guard of recursive removal against its description. Nothing is removed here.

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "fuzz/fuzz.h"
#include "quen/io/entry_points.h"

namespace fs = std::filesystem;
using namespace quen::fuzz;

namespace {

constexpr const char* kHome = "/usr/share";  // a folder that every machine has

bool spellsParentStep(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return ('/' + text + '/').find("/../") != std::string::npos;
}

bool shouldBeUnsafe(const std::string& text) {
  if (text.empty() || spellsParentStep(text)) return true;
  std::error_code error;
  const fs::path absolute = fs::absolute(text, error);
  if (error) return true;
  const fs::path candidate = absolute.lexically_normal();
  if (candidate.relative_path().empty() || candidate == fs::weakly_canonical(kHome)) return true;
  const fs::path canonical = fs::weakly_canonical(candidate, error);
  return !error && canonical == fs::weakly_canonical(kHome);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isSet =
      setenv("HOME", kHome, 1) == 0 && unsetenv("QUEN_HOME") == 0 && chdir("/usr") == 0;
  require(isSet, "environment");
  const std::string text = Input(data, size).text();
  require(Quen_isUnsafeRecursiveDeletePath(text.c_str()) == shouldBeUnsafe(text), "guard", text);
  requireSame("raised", raised(), "");
  return 0;
}
