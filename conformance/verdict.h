// Checking one requirement, in this process or in one of its own. Private to the kit.
#pragma once

#include <chrono>
#include <string>

#include "conformance/requirement.h"

namespace quen::conformance {

enum class Outcome : char { kMet = 'm', kNotMet = 'n', kSkipped = 's', kNeverReturned = 'r' };

struct Verdict {
  Outcome outcome;
  std::string message;  // what came instead, or what the adapter does not have
};

Verdict check(const Requirement& requirement, const Adapter& adapter,
              std::chrono::milliseconds patience);

// The same in a forked process, whatever becomes of it.
Verdict checkInOwnProcess(const Requirement& requirement, const Adapter& adapter,
                          std::chrono::milliseconds patience);

}  // namespace quen::conformance
