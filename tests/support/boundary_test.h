// The fixture of tests that call entry points: it owns the objects they create and a scratch
// folder, and turns results and exceptions into strings that can be compared.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "runtime/small/host.h"
#include "tests/support/scratch_folder.h"

namespace quen::tests {

class BoundaryTest : public testing::Test {
 protected:
  BoundaryTest() { small::takeException(); }
  ~BoundaryTest() override {
    EXPECT_EQ(raised(), "") << "an exception that the test did not expect";
  }

  // Takes the raised exception: "IOException: Cannot open file", or "" when there is none.
  static std::string raised() {
    const std::optional<small::Exception> exception = small::takeException();
    return exception ? exception->className + ": " + exception->message : "";
  }

  // The bytes of a returned String; fails the test for any other object.
  static std::string text(void* string) {
    EXPECT_EQ(small::className(string), "String");
    return small::stringBytes(string);
  }

  small::Scope scope;
  ScratchFolder scratch;
};

}  // namespace quen::tests
