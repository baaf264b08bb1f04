// Requirements that a runtime is known not to meet yet. Private to the kit.
#pragma once

#include <map>
#include <stdexcept>
#include <string>

#include "conformance/requirement.h"

namespace quen::conformance {

// By the words of the requirement, the reason why it is not met.
using ExpectedFailures = std::map<std::string, std::string>;

// The command line, or a file that it names, cannot be used.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws UsageError if the file cannot be read, or if a line has no reason or names no requirement.
ExpectedFailures readExpectedFailures(const std::string& file, const Requirements& requirements);

}  // namespace quen::conformance
