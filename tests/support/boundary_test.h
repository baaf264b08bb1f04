// What a test at the boundary needs: a scope for its objects, a scratch folder, and the answers of
// entry points in a form that can be compared.
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
  ~BoundaryTest() override { EXPECT_EQ(raised(), "") << "nobody asked for this exception"; }

  // Takes what was raised: "IOException: Cannot open file"; "" when nothing was.
  static std::string raised() {
    const std::optional<small::Exception> exception = small::takeException();
    return exception ? exception->className + ": " + exception->message : "";
  }

  // The bytes of a String that an entry point returned; fails the test for any other object.
  static std::string text(void* string) {
    EXPECT_EQ(small::className(string), "String");
    return small::stringBytes(string);
  }

  small::Scope scope;
  ScratchFolder scratch;
};

}  // namespace quen::tests
