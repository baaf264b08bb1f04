// Some seconds of random programs; quen_io_differential runs any number of them.

#include <gtest/gtest.h>

#include "tests/differential/program.h"
#include "tests/support/generator.h"

namespace quen::differential {
namespace {

TEST(GeneratedPrograms, GiveTheSameInBothForms) {
  tests::Generator generator;
  SCOPED_TRACE(generator.describe());
  Judge judge;
  const std::size_t programs = tests::generatedInputs(100);
  for (std::size_t i = 0; i < programs; ++i) {
    const std::vector<std::uint8_t> program = randomProgram(generator.below(SIZE_MAX));
    ASSERT_EQ(runProgram(judge, program.data(), program.size()), "");
  }
}

}  // namespace
}  // namespace quen::differential
