// Path operations in both forms on two texts, passed as path objects (receiver and operand) and as
// C strings.

#include "fuzz/fuzz.h"
#include "fuzz/judged.h"
#include "tests/differential/program.h"

using namespace quen::fuzz;
using namespace quen::differential;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string first = input.text();
  const std::string second = input.text();
  for (const EntryPoint& entry : entryPoints()) {
    if (!mayBeGivenAnyText(entry)) continue;
    Arguments arguments;
    for (const char role : entry.roles) {
      const std::string& each = arguments.empty() ? first : second;
      if (role == 'o') {
        arguments.push_back(each.ends_with('/') ? folderPath(each) : path(each));
      } else {
        arguments.push_back(text(each));
      }
    }
    requireNone(judge().compare(entry, arguments));
  }
  return 0;
}
