// Calls that are made with little memory, on several threads at once, and what may come of them.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/scratch_folder.h"

namespace quen::tests {

// The contents of each file by its path relative to a folder; "/" for a folder.
using Snapshot = std::map<std::string, std::string>;

// All that can be seen of a call after it.
struct Outcome {
  std::string result;        // in words; "" if the call was ended by exhausted memory
  std::string raised;        // by the runtime: class and message; "" if nothing
  bool outOfMemory = false;  // std::bad_alloc, or what a host makes of it
  std::string arguments;     // what was stored in them
  Snapshot disk;

  bool operator==(const Outcome&) const = default;
};

// Makes one call, again and again, on a thread of its own. The steps that follow the call need
// memory, and are done when there is some again.
class Caller {
 public:
  Caller() = default;
  virtual ~Caller() = default;
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  virtual void prepare() = 0;
  virtual void call() = 0;
  virtual Outcome outcome() = 0;  // without the disk
  virtual void release() = 0;     // closes and forgets what was prepared

  const ScratchFolder scratch;  // where it calls; emptied before each call
};

// One call, with so many bytes of memory for all threads.
struct Attempt {
  std::size_t bytes = 0;
  Snapshot before;
  Outcome outcome;
};

// Makes all callers call at the same time, with more memory at each step, and in the end with as
// much as they like; that is the last attempt. Fails the test if descriptors were left open. Calls
// `expectUsable` after each step. For a child process, since the memory of the process is limited.
std::vector<std::vector<Attempt>> attempt(const std::vector<std::unique_ptr<Caller>>& callers,
                                          const std::function<void()>& expectUsable);

// Checks one caller's attempts, of the entry point with this name (or a call that contains it):
// with little memory, a call runs out of it, fails as documented, or does what it does with enough,
// and each entry on disk is as before or as after. With none it cannot succeed, if it
// needs memory; with the most it does.
void checkAttempts(std::string_view name, const std::vector<Attempt>& attempts, bool needsMemory);

}  // namespace quen::tests
