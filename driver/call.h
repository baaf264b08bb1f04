// Calls an entry point with words as arguments; shared by `call` and the shell.
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

// A Byte[] argument that the call may have filled.
struct Filled {
  std::string_view parameter;
  Value bytes;
};

struct Outcome {
  Value result;
  std::optional<small::Exception> raised;
  std::vector<Filled> filled;
};

// Throws UsageError before calling if the words do not match the parameters.
Outcome callEntryPoint(const EntryPoint& entry, const std::vector<std::string>& words,
                       const Results& results = {});

// One line, as "IOException: Cannot open file".
std::string describe(const small::Exception& raised);

// The same on standard error.
void report(const small::Exception& raised);

// Prints the runtime operations that the module called on standard error, one per line.
void printTrace(const std::vector<std::string>& calls);

// The result on standard output, or the exception on standard error.
void print(const Outcome& outcome);

}  // namespace quen::driver
