// The modules for real interpreters (examples/) with little memory: every entry point is called by
// a script, with objects of the language. The calls are those of host_calls.txt, which are
// expressions of Lua and of Python alike.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/limits/attempts.h"
#include "tests/support/child_process.h"

namespace quen::tests {

inline std::vector<std::string> hostCalls() {
  std::ifstream file(QUEN_IO_HOST_CALLS);
  std::vector<std::string> calls;
  for (std::string line; std::getline(file, line);) calls.push_back(line);
  return calls;
}

using NewCaller = std::function<std::unique_ptr<Caller>(const std::string& call)>;

// Checks that a call with enough memory works.
inline void expectHostUsable(const NewCaller& newCaller) {
  const std::unique_ptr<Caller> caller = newCaller("FileReader._readAllTextPath(file)");
  caller->prepare();
  caller->call();
  EXPECT_EQ(caller->outcome().result, "String: " + std::string(20'000, 't'));
  caller->release();
}

// Makes every call of the list on so many threads at once, each in a child process; `newCaller`
// makes a caller of it, in the child.
inline void expectHostToFailOrSucceed(std::size_t threads, const NewCaller& newCaller) {
  const std::vector<std::string> calls = hostCalls();
  ASSERT_FALSE(calls.empty());
  for (const std::string& call : calls) {
    SCOPED_TRACE(call);
    inChild([&] {
      std::vector<std::unique_ptr<Caller>> callers;
      while (callers.size() < threads) callers.push_back(newCaller(call));
      const bool needsMemory = call.find("Handle(") == call.npos;
      for (const auto& each : attempt(callers, [&] { expectHostUsable(newCaller); })) {
        checkAttempts(call, each, needsMemory);
      }
    });
  }
}

}  // namespace quen::tests
