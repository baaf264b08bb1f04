#include "conformance/expected_failures.h"

#include <algorithm>
#include <fstream>

namespace quen::conformance {

namespace {

std::string trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool isRequirement(const std::string& words, const Requirements& requirements) {
  return std::any_of(requirements.begin(), requirements.end(),
                     [&](const Requirement& each) { return each.words == words; });
}

[[noreturn]] void refuse(const std::string& file, int line, const std::string& fault) {
  throw UsageError(file + ':' + std::to_string(line) + ": " + fault);
}

}  // namespace

ExpectedFailures readExpectedFailures(const std::string& file, const Requirements& requirements) {
  std::ifstream lines(file);
  if (!lines) throw UsageError("cannot read " + file);

  ExpectedFailures expected;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;

    const std::size_t bar = line.find('|');
    const std::string words = trimmed(line.substr(0, bar));
    const std::string reason = bar == std::string::npos ? "" : trimmed(line.substr(bar + 1));
    if (reason.empty()) refuse(file, number, "no reason; write REQUIREMENT | REASON");
    if (!isRequirement(words, requirements)) refuse(file, number, "no requirement: " + words);
    expected[words] = reason;
  }
  return expected;
}

}  // namespace quen::conformance
