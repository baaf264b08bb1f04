// Calling an entry point with words for arguments: what `call` and the shell have in common.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/arguments.h"
#include "driver/entry_table.h"
#include "driver/values.h"
#include "runtime/small/host.h"

namespace quen::driver {

// A Byte[] that a call may have put bytes into.
struct Filled {
  std::string_view parameter;
  Value bytes;
};

struct Outcome {
  Value result;
  std::optional<small::Exception> raised;
  std::vector<Filled> filled;
};

// Throws UsageError when the words are not what the entry point takes; nothing was called then.
Outcome callEntryPoint(const EntryPoint& entry, const std::vector<std::string>& words,
                       const Results& results = {});

// One line, as "IOException: Cannot open file".
std::string describe(const small::Exception& raised);

// The same on standard error.
void report(const small::Exception& raised);

}  // namespace quen::driver
