// Calls of every entry point on entries of every kind, in an environment that a child process
// enters. The module has to behave there as its plain form does.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/differential/story.h"

namespace quen::differential {

// Enters an environment, in a child process whose working directory is the form's folder. Returns
// 0, or the errno with which the system refused it.
using Enter = std::function<int(const Story& child)>;

// What an Enter returns if the environment was entered and is not the one that it should be.
inline constexpr int kNoEffect = -1;

// The environment, and what the tests do outside of it, in the process of the test.
struct Environment {
  Enter enter;
  std::function<void(const Story& story)> prepare = [](const Story&) {};  // the entries exist
  std::function<void(const Story& story)> cleanUp = [](const Story&) {};

  // What the paths begin with; entries exist below the first two, in the form's folder.
  std::vector<std::string> prefixes = {"relative ", "@/absolute "};
};

// Makes all calls in the environment, with both forms, and expects equal outcomes and folders.
// Returns the module's log. Skips the test, with an empty log, if the system does not permit the
// environment.
std::string expectSameIn(const Environment& environment);

// How often a log contains an outcome, such as "raised: IOException: Cannot open file".
std::size_t count(const std::string& told, std::string_view outcome);

}  // namespace quen::differential
