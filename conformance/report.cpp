#include "conformance/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>
#include <string_view>

namespace quen::conformance {

namespace {

struct Words {
  Result result;
  const char* line;     // the first word of the line
  const char* summary;  // after the number
};

constexpr std::array<Words, 6> kWords{{
    {Result::kMet, "met", "met"},
    {Result::kNotMet, "NOT MET", "not met"},
    {Result::kAdvice, "advice", "with advice"},
    {Result::kExpected, "expected", "expected not to be met"},
    {Result::kNowMet, "NOW MET", "now met"},
    {Result::kSkipped, "skipped", "skipped"},
}};

const Words& wordsOf(Result result) {
  return *std::find_if(kWords.begin(), kWords.end(),
                       [result](const Words& each) { return each.result == result; });
}

std::ptrdiff_t countOf(Result result, const std::vector<Finding>& findings) {
  return std::count_if(findings.begin(), findings.end(),
                       [result](const Finding& finding) { return finding.result == result; });
}

const char* severityOf(const Requirement& requirement) {
  return requirement.severity == Severity::kNeeded ? "needed" : "advised";
}

// Bytes beyond ASCII are those of the file of expected failures, which is UTF-8.
std::string inJson(std::string_view text) {
  std::string escaped = "\"";
  for (const char each : text) {
    if (each == '"' || each == '\\') {
      escaped += {'\\', each};
    } else if (static_cast<unsigned char>(each) < 0x20) {
      std::array<char, 7> code{};
      static_cast<void>(std::snprintf(code.data(), code.size(), "\\u%04x", each));
      escaped += code.data();
    } else {
      escaped += each;
    }
  }
  return escaped + '"';
}

// Control characters cannot be written in XML 1.0, not even as references.
std::string inXml(std::string_view text) {
  std::string escaped = "\"";
  for (const char each : text) {
    switch (each) {
      case '"': escaped += "&quot;"; break;
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      default: escaped += static_cast<unsigned char>(each) < 0x20 ? ' ' : each;
    }
  }
  return escaped + '"';
}

}  // namespace

bool isFailure(const Finding& finding) {
  return finding.result == Result::kNotMet || finding.result == Result::kNowMet;
}

void printLine(std::ostream& out, const Finding& finding) {
  constexpr std::size_t kWidth = 9;
  std::string word = wordsOf(finding.result).line;
  word.resize(kWidth, ' ');
  out << word << finding.requirement->words;
  if (!finding.message.empty()) out << ": " << finding.message;
  out << std::endl;
}

// Without the numbers that are 0, except of what is not met.
void printSummary(std::ostream& out, const std::vector<Finding>& findings) {
  out << findings.size() << " requirements";
  for (const Words& each : kWords) {
    const auto count = countOf(each.result, findings);
    const bool isAlwaysShown = each.result == Result::kNotMet;
    if (each.result != Result::kMet && (count > 0 || isAlwaysShown)) {
      out << ", " << count << ' ' << each.summary;
    }
  }
  out << std::endl;
}

void printJson(std::ostream& out, const std::vector<Finding>& findings) {
  out << "{\n  \"summary\": {\"requirements\": " << findings.size();
  for (const Words& each : kWords) {
    out << ", " << inJson(each.summary) << ": " << countOf(each.result, findings);
  }
  out << "},\n  \"requirements\": [";
  const char* separator = "\n";
  for (const Finding& finding : findings) {
    out << separator << "    {\"requirement\": " << inJson(finding.requirement->words)
        << ", \"severity\": " << inJson(severityOf(*finding.requirement))
        << ", \"result\": " << inJson(wordsOf(finding.result).summary)
        << ", \"message\": " << inJson(finding.message) << '}';
    separator = ",\n";
  }
  out << "\n  ]\n}" << std::endl;
}

void printJUnit(std::ostream& out, const std::vector<Finding>& findings) {
  const auto failures = std::count_if(findings.begin(), findings.end(), isFailure);
  const auto others = std::count_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return !isFailure(finding) && finding.result != Result::kMet;
  });
  out << R"(<?xml version="1.0" encoding="UTF-8"?>)"
      << "\n<testsuite name=\"conformance\" tests=\"" << findings.size() << "\" failures=\""
      << failures << "\" skipped=\"" << others << "\">\n";
  for (const Finding& finding : findings) {
    const std::string word = wordsOf(finding.result).summary;
    out << "  <testcase classname=" << inXml(severityOf(*finding.requirement))
        << " name=" << inXml(finding.requirement->words) << '>';
    if (finding.result != Result::kMet) {
      out << (isFailure(finding) ? "<failure" : "<skipped")
          << " message=" << inXml(word + ": " + finding.message) << "/>";
    }
    out << "</testcase>\n";
  }
  out << "</testsuite>" << std::endl;
}

}  // namespace quen::conformance
