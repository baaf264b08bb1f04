// Runs code of a test on several threads.
#pragma once

#include <latch>
#include <thread>
#include <vector>

namespace quen::tests {

// Calls body(0) to body(count - 1), each on a thread of its own, all released at the same time.
// Returns when all have returned.
template <class Body>
void together(int count, const Body& body) {
  std::latch start(count);
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < count; ++thread) {
    threads.emplace_back([&body, &start, thread] {
      start.arrive_and_wait();
      body(thread);
    });
  }
}

}  // namespace quen::tests
