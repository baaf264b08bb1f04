// The results of a run, as text, JSON or JUnit. Private to the kit.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "conformance/requirement.h"

namespace quen::conformance {

enum class Result { kMet, kNotMet, kAdvice, kExpected, kNowMet, kSkipped };

struct Finding {
  const Requirement* requirement;
  Result result;
  std::string message;  // empty for what is met
};

// Whether the run fails because of it.
bool isFailure(const Finding& finding);

// The line of one finding, which is flushed, and the summary.
void printLine(std::ostream& out, const Finding& finding);
void printSummary(std::ostream& out, const std::vector<Finding>& findings);

// An object with "summary" and "requirements".
void printJson(std::ostream& out, const std::vector<Finding>& findings);

// A test suite with a test case for each requirement, as CI systems read it.
void printJUnit(std::ostream& out, const std::vector<Finding>& findings);

}  // namespace quen::conformance
