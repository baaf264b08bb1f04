// Parts of a test that need a process of their own: another user, another working directory,
// another environment, or a module that has not done anything yet.
#pragma once

#include <functional>
#include <string_view>

namespace quen::tests {

// Runs the body in a forked child. Its failed expectations are printed there and fail the test.
void inChild(const std::function<void()>& body);

// The same without any privilege, so that permissions hold for root as well.
void inUnprivilegedChild(const std::function<void()>& body);

// Runs one test of this program, "Suite.Name", in a process that starts anew. Such a test is named
// DISABLED_ so that nobody else runs it.
void inFreshProcess(std::string_view test);

}  // namespace quen::tests
