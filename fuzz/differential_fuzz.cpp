// Sequences of calls, decoded from the input, made in both forms.

#include "fuzz/judged.h"
#include "tests/differential/program.h"

using namespace quen::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 2000) return 0;
  requireNone(quen::differential::runProgram(judge(), data, size));
  return 0;
}
