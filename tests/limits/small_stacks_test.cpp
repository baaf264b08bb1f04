// Every entry point on a thread with a minimal stack.

#include <gtest/gtest.h>
#include <pthread.h>

#include <climits>
#include <fstream>
#include <set>
#include <string>

#include "runtime/small/host.h"
#include "tests/limits/every_entry_point.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/sanitized.h"

using namespace quen::small;
using namespace quen::tests;

namespace {

class EveryEntryPoint : public BoundaryTest {};

// Runs the call on a thread with a stack of PTHREAD_STACK_MIN plus 16 KiB.
void onSmallStack(const EntryPointCall& call, const Ground& ground) {
  struct Both {
    const EntryPointCall& call;
    const Ground& ground;
  } both{call, ground};
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes,
                                      static_cast<std::size_t>(PTHREAD_STACK_MIN) + 16 * 1024),
            0);
  pthread_t thread{};
  const auto run = [](void* argument) -> void* {
    const Both& given = *static_cast<const Both*>(argument);
    given.call.make(given.ground);
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &both), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

TEST_F(EveryEntryPoint, IsCalledByTheseTests) {
  std::ifstream header(QUEN_IO_ENTRY_POINTS_HEADER);
  std::set<std::string> declared;
  for (std::string line; std::getline(header, line);) {
    const std::size_t end = line.find('(');
    if (line.starts_with("//") || end == std::string::npos) continue;
    const std::size_t begin = line.find_last_of(" *", end) + 1;
    if (line.starts_with("void") || line.starts_with("bool") || line.starts_with("std::")) {
      declared.insert(line.substr(begin, end - begin));
    }
  }
  ASSERT_FALSE(declared.empty());

  std::set<std::string> called;
  for (const EntryPointCall& call : everyEntryPoint()) called.insert(call.name);
  EXPECT_EQ(called, declared);
}

TEST_F(EveryEntryPoint, NeedsLittleStack) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer makes frames larger";

  for (const EntryPointCall& call : everyEntryPoint()) {
    SCOPED_TRACE(call.name);
    inChild([&] {
      const Ground ground(scratch);
      onSmallStack(call, ground);
    });
  }
}

}  // namespace
