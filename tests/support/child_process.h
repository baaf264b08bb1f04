// Tests that need a process of their own: because they change the user, the working directory or
// the environment, or because the module must not have been called before.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string_view>

namespace quen::tests {

// Runs the body in a forked child. Its failed expectations are printed there and fail the test.
void inChild(const std::function<void()>& body);

// The same without any privilege, so that permissions hold for root as well.
void inUnprivilegedChild(const std::function<void()>& body);

// Runs one test of this program, "Suite.Name", in a newly executed process.
void inFreshProcess(std::string_view test);

// Runs the twin of the current test, whose name begins with DISABLED_, in a newly executed process.
void runDisabledTwinInFreshProcess();

}  // namespace quen::tests

// A TEST_F whose body runs in a newly executed process, where the module has not been called yet.
// GoogleTest runs the test of the plain name; that one executes this program again for the body,
// which is a test that nobody else runs because its name begins with DISABLED_.
#define TEST_F_IN_FRESH_PROCESS(fixture, name)                            \
  TEST_F(fixture, name) { quen::tests::runDisabledTwinInFreshProcess(); } \
  TEST_F(fixture, DISABLED_##name)
