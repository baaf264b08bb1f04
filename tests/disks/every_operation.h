// A table of all operations of the module on one path, so that a test can state their outcomes for
// an unusual entry or a failing disk as one table.
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

// The raised exception, or else the result. None when the operation is not to be called.
using Outcome = std::optional<std::string>;

// The groups of operations. All operations of a group have the same outcome.
struct Outcomes {
  Outcome entry = {};        // the queries: "nothing", "file of 3 bytes", "link to folder"
  Outcome text = {};         // the whole text: readAllText, readTextFromOffset, readStrict
  Outcome prefix = {};       // at most kReadAtMost bytes, as text
  Outcome bytes = {};        // the same as a Byte[]
  Outcome truncate = {};     // the contents of the file afterwards, as for all that write
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

// The outcomes where nothing exists and nothing can be created, as for a path that is too long.
Outcomes unreachable();

// The outcomes for a file that contains "old", can be read and cannot be changed.
Outcomes unchangeable();

// The outcomes for a regular file that contains "old".
Outcomes ordinary();

struct Operation {
  const char* name;
  Outcome Outcomes::*group;
  std::string (*call)(const std::filesystem::path& path, const std::string& text);

  bool isReadOnly() const;
  bool writesText() const;  // except to publish it
};

std::span<const Operation> everyOperation();

// A description of everything in the folder, recursively.
std::string tree(const std::filesystem::path& folder);

// The default condition of expectOutcomes, which changes nothing.
struct NoCondition {};

// Calls each operation with the path that `prepare` returns, while an object of type Condition
// lives. No operation may leave a descriptor open, and one that raises or is read-only may not
// change anything in the folder.
template <typename Condition = NoCondition>
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
    if (operation.isReadOnly() || outcome->starts_with("IOException")) {
      EXPECT_EQ(tree(folder), before);
    }
  }
}

}  // namespace quen::tests
