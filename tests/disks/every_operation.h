// Everything that the module does with one path. What all of it does with an odd entry, or on a
// disk that fails, is then one table.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "tests/support/process_state.h"

namespace quen::tests {

// What was raised, or else the answer. None for what is not to be called.
using Outcome = std::optional<std::string>;

// The entry points that are told apart. All of a group have the same outcome.
struct Outcomes {
  Outcome entry = {};        // what the queries say: "nothing", "file of 3 bytes", "link to folder"
  Outcome text = {};         // the whole text: readAllText, readTextFromOffset, readStrict
  Outcome prefix = {};       // at most kReadAtMost bytes, as text
  Outcome bytes = {};        // the same as a Byte[]
  Outcome truncate = {};     // what the file holds then, as after all that write
  Outcome replace = {};      // by "new", in one shot and through a handle
  Outcome append = {};       // the same
  Outcome publish = {};      // "new" as an index
  Outcome remove = {};       // "gone"
  Outcome rename = {};       // "moved", to "renamed" in its folder
  Outcome touch = {};        // "file of 3 bytes", as of the queries
  Outcome makeFolder = {};   // the same
  Outcome makeFolders = {};  // the same
  Outcome removeAll = {};    // "gone"
  Outcome list = {};         // the names in it, in order
};

inline constexpr std::int64_t kReadAtMost = 100;
inline const std::string kNew = "new";

// Where nothing is and nothing can be made, as below a path that is too long.
Outcomes unreachable();

// The same of what is there and may be read, a file that holds "old", and where every change is
// refused.
Outcomes unchangeable();

struct Operation {
  const char* name;
  Outcome Outcomes::*group;
  std::string (*call)(const std::filesystem::path& path, const std::string& text);

  bool onlyLooks() const;
  bool writesText() const;  // not to publish it
};

std::span<const Operation> everyOperation();

// All that can be told of a folder and of what is in it.
std::string tree(const std::filesystem::path& folder);

// Nothing out of the ordinary.
struct Ordinarily {};

// Calls each entry point with the path that `prepare` made ready for it, while a condition holds.
// None may leave a descriptor open, and what raises or only looks may not change anything in the
// folder.
template <typename Condition = Ordinarily>
void expectOutcomes(const std::filesystem::path& folder,
                    const std::function<std::filesystem::path()>& prepare,
                    const Outcomes& expected) {
  for (const Operation& operation : everyOperation()) {
    const Outcome& outcome = expected.*operation.group;
    if (!outcome) continue;
    SCOPED_TRACE(operation.name);
    const std::filesystem::path path = prepare();
    const std::string before = tree(folder);
    const auto openBefore = openFiles();

    const auto callUnderCondition = [&] {
      [[maybe_unused]] const Condition condition;
      return operation.call(path, kNew);
    };
    EXPECT_EQ(callUnderCondition(), *outcome);

    EXPECT_EQ(openFiles(), openBefore);
    if (operation.onlyLooks() || outcome->starts_with("IOException")) {
      EXPECT_EQ(tree(folder), before);
    }
  }
}

}  // namespace quen::tests
