// What a requirement is, and how a check says that it is not met. Private to the kit.
#pragma once

#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/conformance.h"

namespace quen::conformance {

struct Requirement {
  const char* words;

  // Returns when the requirement is met and throws one of the three below when it is not.
  std::function<void(const Adapter&)> check;
};

using Requirements = std::vector<Requirement>;

// Says what came instead.
struct NotMet : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The same, and a thread will never come back.
struct NeverReturned : NotMet {
  using NotMet::NotMet;
};

// Says what the adapter does not have.
struct Skipped : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// By subject, each in a file of that name.
Requirements textRequirements();
Requirements pathRequirements();
Requirements objectRequirements();
Requirements magicRequirements();
Requirements entryRequirements();
Requirements byteArrayRequirements();
Requirements listRequirements();
Requirements exceptionRequirements();
Requirements threadRequirements();

// The requirement is not met unless the condition holds.
void require(bool condition, const std::string& instead);

// The same for two byte strings; `what` names the first.
void requireEqual(std::string_view what, std::string_view actual, std::string_view expected);

// The object; the requirement is not met when it is null.
void* made(void* object, std::string_view what = "the object");

// To be held first on each thread that a check starts.
class ThreadOfAdapter {
 public:
  explicit ThreadOfAdapter(const Adapter& adapter) : adapter_(adapter) { adapter_.enterThread(); }
  ~ThreadOfAdapter() { adapter_.leaveThread(); }
  ThreadOfAdapter(const ThreadOfAdapter&) = delete;
  ThreadOfAdapter& operator=(const ThreadOfAdapter&) = delete;

 private:
  const Adapter& adapter_;
};

// Bytes as they are shown: in quotes, unprintable ones as \xNN, and only the first of many.
std::string shown(std::string_view bytes);

}  // namespace quen::conformance
