// Compiled with -fsanitize=thread, as the module is.
#include "tests/interleavings/small_programs.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <utility>

namespace quen::interleavings {

namespace {

// What the threads share. Made anew for each schedule.
struct Shared {
  std::array<std::mutex, kMostThreads> mutexes;
  std::atomic<std::int64_t> number{0};
  int value = 0;
  std::shared_ptr<int> object = std::make_shared<int>(0);
};

Shared* gShared = nullptr;

using Body = std::function<void(Shared&)>;

class SmallProgram : public Program {
 public:
  explicit SmallProgram(std::vector<Body> bodies) : bodies_(std::move(bodies)) {}

  int threads() const override { return static_cast<int>(bodies_.size()); }
  void begin() override { gShared = new Shared; }
  void run(int thread) override { bodies_[static_cast<std::size_t>(thread)](*gShared); }
  void finish() override { delete gShared; }
  void judge() override {}

 private:
  std::vector<Body> bodies_;
};

void lockEach(Shared& shared, std::size_t first, std::size_t second) {
  const std::lock_guard one(shared.mutexes[first]);
  const std::lock_guard two(shared.mutexes[second]);
}

void addUnderLock(Shared& shared, int number) {
  const std::lock_guard lock(shared.mutexes[0]);
  shared.value = 10 * shared.value + number;
}

}  // namespace

std::unique_ptr<Program> smallProgram(const std::string& name) {
  const auto adding = [](int number) {
    return [number](Shared& shared) { addUnderLock(shared, number); };
  };
  const auto locking = [](std::size_t mutex) {
    return [mutex](Shared& shared) { const std::lock_guard lock(shared.mutexes[mutex]); };
  };
  std::vector<Body> bodies;
  if (name == "three critical sections") {
    bodies = {adding(1), adding(2), adding(3)};
  } else if (name == "three mutexes") {
    bodies = {locking(0), locking(1), locking(2)};
  } else if (name == "two atomic additions each") {
    bodies = {2, [](Shared& shared) {
                shared.number.fetch_add(1);
                shared.number.fetch_add(1);
              }};
  } else if (name == "data race") {
    bodies = {[](Shared& shared) { shared.value = 1; }, adding(2)};
  } else if (name == "two mutexes in both orders") {
    bodies = {[](Shared& shared) { lockEach(shared, 0, 1); },
              [](Shared& shared) { lockEach(shared, 1, 0); }};
  } else if (name == "two mutexes in one order") {
    bodies = {2, [](Shared& shared) { lockEach(shared, 0, 1); }};
  } else if (name == "flag that publishes") {
    bodies = {[](Shared& shared) {
                shared.value = 1;
                shared.number.store(1);
              },
              [](Shared& shared) {
                if (shared.number.load() == 1) shared.value = 2;
              }};
  } else if (name == "flag without order") {
    bodies = {[](Shared& shared) {
                shared.value = 1;
                shared.number.store(1, std::memory_order_relaxed);
              },
              [](Shared& shared) {
                if (shared.number.load(std::memory_order_relaxed) == 1) shared.value = 2;
              }};
  } else if (name == "use of freed memory") {
    bodies = {[](Shared& shared) {
                const std::lock_guard lock(shared.mutexes[0]);
                shared.object.reset();
              },
              [](Shared& shared) {
                int* object = nullptr;
                {
                  const std::lock_guard lock(shared.mutexes[0]);
                  object = shared.object.get();
                }
                const std::lock_guard lock(shared.mutexes[0]);
                if (object != nullptr) *object = 1;
              }};
  } else if (name == "owners of one object") {
    bodies = {kMostThreads, [](Shared& shared) {
                std::shared_ptr<int> own;
                const std::lock_guard lock(shared.mutexes[0]);
                own = shared.object;
                shared.object.reset();
              }};
  } else if (name == "leak") {
    bodies = {2, [](Shared& shared) {
                if (shared.number.fetch_add(1) == 1) shared.object.reset(new int, [](int*) {});
              }};
  } else {
    std::abort();
  }
  return std::make_unique<SmallProgram>(std::move(bodies));
}

}  // namespace quen::interleavings
