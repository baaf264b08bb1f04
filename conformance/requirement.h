// Requirements and the exceptions that their checks throw. Private to the kit.
#pragma once

#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/conformance.h"

namespace quen::conformance {

enum class Severity {
  kNeeded,   // the module needs it
  kAdvised,  // careful embedders want it; the module works without it
};

struct Requirement {
  const char* words;

  // Returns if the requirement is met; otherwise throws one of the exceptions below.
  std::function<void(const Adapter&)> check;

  Severity severity = Severity::kNeeded;
};

using Requirements = std::vector<Requirement>;

// The requirement is not met; the message says what happened instead.
struct NotMet : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The same, and a thread of the check is still in the runtime.
struct NeverReturned : NotMet {
  using NotMet::NotMet;
};

// The check needs something that the adapter does not offer, which the message names.
struct Skipped : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The requirements of each subject, each in a source file of that name.
Requirements textRequirements();
Requirements pathRequirements();
Requirements objectRequirements();
Requirements magicRequirements();
Requirements entryRequirements();
Requirements byteArrayRequirements();
Requirements listRequirements();
Requirements exceptionRequirements();
Requirements threadRequirements();
Requirements reentryRequirements();

// All of them, in the order in which they are checked.
Requirements allRequirements();

// Throws NotMet with the message unless the condition holds.
void require(bool condition, const std::string& instead);

// Throws NotMet unless both byte strings are equal; `what` describes the first.
void requireEqual(std::string_view what, std::string_view actual, std::string_view expected);

// Returns the object, or throws NotMet if it is null.
void* made(void* object, std::string_view what = "the object");

// Takes the pending exception. Throws NotMet unless there is one with this message.
void requireRaised(const Adapter& adapter, std::string_view message);

// The bytes in quotes, unprintable ones as \xNN, truncated if there are many.
std::string shown(std::string_view bytes);

}  // namespace quen::conformance
