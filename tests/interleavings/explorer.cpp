#include "tests/interleavings/explorer.h"

#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/interleavings/memory.h"

namespace quen::interleavings {

namespace {

using Threads = unsigned;  // a set of threads, one bit each

constexpr std::size_t kStackSize = std::size_t{256} << 10;
constexpr std::size_t kMostMutexes = 16;
constexpr std::size_t kMostOperations = 1000;
constexpr int kMain = -1;
constexpr std::array kNames{"-",    "lock",  "try lock", "unlock", "raise",
                            "load", "store", "count",    "file",   "copy everything"};

constexpr Threads only(int thread) { return 1U << static_cast<unsigned>(thread); }
constexpr bool contains(Threads threads, int thread) { return (threads & only(thread)) != 0; }
int lowestOf(Threads threads) { return std::countr_zero(threads); }

// For each thread, how many of its operations happen before something.
using Clock = std::array<std::uint16_t, kMostThreads>;

// A state of the schedule, and the operation that leads out of it.
struct Step {
  Threads enabled = 0;
  Threads backtrack = 0;  // the threads that have to be tried from this state
  Threads done = 0;       // those that were
  Threads asleep = 0;     // those whose operation would repeat an earlier schedule
  int thread = 0;
  Operation operation;
  bool toZero = false;  // of a reference count
  int call = 0;
  Clock clock{};
};

struct Call {
  const Step* first = nullptr;
  const Step* last = nullptr;
};

struct Mutex {
  const void* address = nullptr;
  int owner = kMain;
};

struct Thread {
  ucontext_t context{};
  Operation pending;
  bool finished = false;
  bool blocked = false;  // for ever
  bool raising = false;
  bool inCall = false;
  bool mayNotWait = false;
  const void* gaveUpOn = nullptr;
  int call = -1;
  std::array<int, kMostThreads> callsAtLastAttempt{};  // of all threads
  Clock clock{};
};

alignas(64) std::array<std::array<char, kStackSize>, kMostThreads> gStacks;
std::array<Thread, kMostThreads> gThreads;
std::array<Mutex, kMostMutexes> gMutexes;
std::array<std::array<Call, kMostCalls>, kMostThreads> gCalls;  // of the schedule to be judged
ucontext_t gMainContext;
Program* gProgram = nullptr;
int gCount = 0;
int gCurrent = kMain;
bool gStarting = false;
bool gAlone = false;
bool gReduced = true;
bool gAbandoned = false;
std::vector<Step> gSteps;  // of this schedule, and of the one before from gDepth on
std::size_t gDepth = 0;    // the steps that were made
Threads gNextAsleep = 0;
std::array<char, 200> gFailure{};

Thread& at(int thread) { return gThreads[static_cast<std::size_t>(thread)]; }

Mutex& mutexAt(const void* address) {
  for (Mutex& mutex : gMutexes) {
    if (mutex.address == address) return mutex;
    if (mutex.address == nullptr) {
      mutex.address = address;
      return mutex;
    }
  }
  fail("too many mutexes for the explorer");
  return gMutexes[0];
}

int valueOf(const void* count) { return *static_cast<const int*>(count); }

bool leadsToZero(const Operation& operation) {
  return operation.access == Access::kCount && valueOf(operation.object) + operation.change == 0;
}

// A mutex is taken within a limited time, unless its owner is inside Quen_raise. What happens after
// an attempt that fails then does not depend on how often it is repeated.
bool isEnabled(const Thread& thread) {
  if (thread.finished || thread.blocked) return false;
  const Operation& operation = thread.pending;
  if (operation.access != Access::kLock && operation.access != Access::kTryLock) return true;
  const int owner = mutexAt(operation.object).owner;
  if (owner == kMain) return true;
  return operation.access == Access::kTryLock && at(owner).raising;
}

Threads enabledThreads() {
  Threads enabled = 0;
  for (int thread = 0; thread < gCount; ++thread) {
    if (isEnabled(at(thread))) enabled |= only(thread);
  }
  return enabled;
}

bool isOf(const Operation& one, const Operation& two, Access access, Access other) {
  return (one.access == access && two.access == other) ||
         (one.access == other && two.access == access);
}

bool useOneObject(const Operation& one, const Operation& two) {
  if (one.access == Access::kEverything || two.access == Access::kEverything) return true;
  if (one.access == Access::kNone || two.access == Access::kNone) return false;
  return one.object == two.object && !isOf(one, two, Access::kLoad, Access::kLoad);
}

// Whether the order of an operation that was made and of a later one has an effect.
bool areDependent(const Operation& made, bool madeToZero, const Operation& later,
                  bool laterToZero) {
  if (!useOneObject(made, later)) return false;
  if (!isOf(made, later, Access::kCount, Access::kCount)) return true;
  return madeToZero || laterToZero;
}

// The same of two that could both be made now. Counts are only asked whether they are zero.
bool areDependentNow(const Operation& one, const Operation& two) {
  if (!useOneObject(one, two)) return false;
  if (!isOf(one, two, Access::kCount, Access::kCount)) return true;
  const int value = valueOf(one.object);
  return value + one.change <= 0 || value + two.change <= 0 || value + one.change + two.change <= 0;
}

// Whether there may be a state in which either could be made. Only an owner unlocks and raises,
// and meanwhile nobody else locks.
bool mayBothBeEnabled(const Operation& one, const Operation& two) {
  const auto isOfOwner = [](const Operation& operation) {
    return operation.access == Access::kUnlock || operation.access == Access::kRaise;
  };
  if (one.access == Access::kEverything || two.access == Access::kEverything) return true;
  if (isOfOwner(one)) return two.access == Access::kTryLock;
  if (isOfOwner(two)) return one.access == Access::kTryLock;
  return true;
}

bool happensBefore(const Step& step, const Clock& clock) {
  const auto thread = static_cast<std::size_t>(step.thread);
  return clock[thread] >= step.clock[thread];
}

// The operation of the thread could come before the step: has that tried from the state before the
// step, or another thread that leads there.
void haveReversed(std::size_t index, int thread) {
  Step& step = gSteps[index];
  Threads leading = only(thread);
  for (std::size_t later = index + 1; later < gDepth; ++later) {
    if (happensBefore(gSteps[later], at(thread).clock)) leading |= only(gSteps[later].thread);
  }
  leading &= step.enabled;
  if ((leading & step.backtrack) != 0) return;
  if (leading == 0) {
    step.backtrack |= step.enabled;
  } else {
    step.backtrack |= only(contains(leading, thread) ? thread : lowestOf(leading));
  }
}

// Finds for each thread the last step that is in a race with its next operation.
void findRaces() {
  for (int thread = 0; thread < gCount; ++thread) {
    const Thread& next = at(thread);
    if (next.finished || next.blocked) continue;
    const bool toZero = leadsToZero(next.pending);
    for (std::size_t index = gDepth; index-- > 0;) {
      const Step& step = gSteps[index];
      if (step.thread == thread || happensBefore(step, next.clock)) continue;
      if (!areDependent(step.operation, step.toZero, next.pending, toZero)) continue;
      if (!mayBothBeEnabled(step.operation, next.pending)) continue;
      haveReversed(index, thread);
      break;
    }
  }
}

// Records the operation that is made next, with what happens before it.
void record(Step& step) {
  Thread& thread = at(step.thread);
  if (!thread.finished) thread.inCall = true;
  step.operation = thread.pending;
  step.toZero = leadsToZero(step.operation);
  step.call = std::max(thread.call, 0);
  step.clock = thread.clock;
  for (std::size_t index = 0; index < gDepth; ++index) {
    const Step& earlier = gSteps[index];
    if (!areDependent(earlier.operation, earlier.toZero, step.operation, step.toZero)) continue;
    for (std::size_t i = 0; i < step.clock.size(); ++i) {
      step.clock[i] = std::max(step.clock[i], earlier.clock[i]);
    }
  }
  ++step.clock[static_cast<std::size_t>(step.thread)];
  thread.clock = step.clock;
}

// Those that are still asleep after the step: what they would do is independent of it.
Threads asleepAfter(const Step& step) {
  Threads asleep = (step.asleep | step.done) & ~only(step.thread);
  for (int thread = 0; thread < gCount; ++thread) {
    if (!contains(asleep, thread)) continue;
    if (areDependentNow(at(thread).pending, step.operation)) asleep &= ~only(thread);
  }
  return asleep;
}

// Remembers in which call each thread is when the current one attempts to take a mutex.
void noteCalls() {
  for (int thread = 0; thread < gCount; ++thread) {
    at(gCurrent).callsAtLastAttempt[static_cast<std::size_t>(thread)] =
        at(thread).inCall ? at(thread).call : -1;
  }
}

// A step of its own if the current thread holds a mutex.
void setRaising(bool raising) {
  for (const Mutex& mutex : gMutexes) {
    if (mutex.address == nullptr || mutex.owner != gCurrent) continue;
    reach({Access::kRaise, mutex.address});
    at(gCurrent).raising = raising;
  }
}

bool isDeadlock() {
  for (int thread = 0; thread < gCount; ++thread) {
    const Thread& each = at(thread);
    if (each.finished || each.blocked) continue;
    // Waits for a thread that is blocked for ever, perhaps through others that do.
    int owner = mutexAt(each.pending.object).owner;
    for (int hops = 0; hops < gCount && owner != kMain && !at(owner).blocked; ++hops) {
      owner = mutexAt(at(owner).pending.object).owner;
    }
    if (each.mayNotWait || owner == kMain || !at(owner).blocked) return true;
  }
  return false;
}

// Chooses the thread that goes on; kMain at the end of the schedule.
int next() {
  const Threads enabled = enabledThreads();
  if (gDepth == kMostOperations) {
    fail("an endless schedule");
    return kMain;
  }
  if (gDepth == gSteps.size()) {
    if (gReduced) findRaces();
    if (enabled == 0) {
      if (isDeadlock()) fail("deadlock");
      return kMain;
    }
    const Threads asleep = gReduced ? gNextAsleep : 0;
    const Threads candidates = enabled & ~asleep;
    if (candidates == 0) {
      gAbandoned = true;
      return kMain;
    }
    Step step;
    step.enabled = enabled;
    step.asleep = asleep;
    const bool goesOn = gCurrent != kMain && contains(candidates, gCurrent);
    step.thread = goesOn ? gCurrent : lowestOf(candidates);
    step.backtrack = gReduced ? only(step.thread) : enabled;
    gSteps.push_back(step);
  } else if (gSteps[gDepth].enabled != enabled) {
    fail("the program is not deterministic");
    return kMain;
  }
  Step& step = gSteps[gDepth];
  record(step);
  gNextAsleep = asleepAfter(step);
  ++gDepth;
  return step.thread;
}

void switchTo(int from, int to) {
  if (from == to) return;
  gCurrent = to;
  swapcontext(from == kMain ? &gMainContext : &at(from).context,
              to == kMain ? &gMainContext : &at(to).context);
}

void runThread() {
  const int thread = gCurrent;
  gProgram->run(thread);
  trackAllocations(false);
  at(thread).finished = true;
  if (gAlone) _exit(0);
  switchTo(thread, gStarting ? kMain : next());
}

void startThread(int thread) {
  Thread& each = at(thread);
  ucontext_t context;
  getcontext(&context);
  auto& stack = gStacks[static_cast<std::size_t>(thread)];
  context.uc_stack.ss_sp = stack.data();
  context.uc_stack.ss_size = stack.size();
  context.uc_link = nullptr;
  each = {};
  each.callsAtLastAttempt.fill(-1);
  each.context = context;
  makecontext(&each.context, runThread, 0);
}

// Moves to the next schedule: another thread from the last state where one is to be tried.
bool backtrack() {
  while (!gSteps.empty()) {
    Step& step = gSteps.back();
    step.done |= only(step.thread);
    const Threads candidates = step.backtrack & ~step.done & ~step.asleep;
    if (candidates != 0) {
      step.thread = lowestOf(candidates);
      return true;
    }
    gSteps.pop_back();
  }
  return false;
}

void runSchedule() {
  gDepth = 0;
  gNextAsleep = 0;
  gAbandoned = false;
  gMutexes = {};
  forgetMemory();

  trackAllocations(true);
  gProgram->begin();
  gStarting = true;
  for (int thread = 0; thread < gCount; ++thread) {
    startThread(thread);
    trackAllocations(true);
    switchTo(kMain, thread);
  }
  gStarting = false;
  trackAllocations(false);
  if (gFailure[0] == '\0') switchTo(kMain, next());
}

bool haveAllFinished() {
  for (int thread = 0; thread < gCount; ++thread) {
    if (!at(thread).finished) return false;
  }
  return true;
}

// Finds the first and the last step of each call.
void findCalls() {
  gCalls = {};
  for (std::size_t index = 0; index < gDepth; ++index) {
    const Step& step = gSteps[index];
    Call& call = gCalls[static_cast<std::size_t>(step.thread)][static_cast<std::size_t>(step.call)];
    if (call.first == nullptr) call.first = &step;
    call.last = &step;
  }
}

void endSchedule(Exploration& result) {
  const bool judged = !gAbandoned && gFailure[0] == '\0';
  const bool all = haveAllFinished();
  trackAllocations(true);
  if (judged && all) gProgram->finish();
  trackAllocations(false);
  if (judged) {
    if (all && liveBlocks() != 0) fail("memory leak");
    findCalls();
    gProgram->judge();
    ++result.schedules;
    result.operations = std::max<std::uint64_t>(result.operations, gDepth);
  } else {
    ++result.abandoned;
  }
}

std::string describeSchedule() {
  std::string text = gFailure.data();
  text += ", in the schedule";
  std::vector<const void*> objects;
  for (std::size_t index = 0; index < gDepth; ++index) {
    const Step& step = gSteps[index];
    auto object = std::find(objects.begin(), objects.end(), step.operation.object);
    if (object == objects.end()) object = objects.insert(object, step.operation.object);
    text += "\n  thread " + std::to_string(step.thread) + ", call " + std::to_string(step.call) +
            ": " + kNames[static_cast<std::size_t>(step.operation.access)] + " " +
            static_cast<char>('A' + (object - objects.begin()));
  }
  return text;
}

}  // namespace

Exploration explore(Program& program, Schedules schedules) {
  gProgram = &program;
  gCount = program.threads();
  gReduced = schedules == Schedules::kReduced;
  gFailure[0] = '\0';
  gSteps.clear();
  gSteps.reserve(kMostOperations + 1);

  Exploration result;
  do {
    runSchedule();
    endSchedule(result);
    if (gFailure[0] == '\0') continue;
    result.failure = describeSchedule();
    break;
  } while (backtrack());
  return result;
}

void haveSeveralThreads() {
  std::thread([] {}).join();
}

void fail(const char* message) {
  if (gAlone) {
    static_cast<void>(std::fprintf(stderr, "in the child: %s\n", message));
    _exit(1);
  }
  if (gFailure[0] == '\0') {
    std::strncpy(gFailure.data(), message, gFailure.size() - 1);
  }
  if (gCurrent == kMain) return;
  trackAllocations(false);
  switchTo(gCurrent, kMain);
}

void beginCall() {
  if (++at(gCurrent).call == kMostCalls) fail("too many calls for the explorer");
  at(gCurrent).inCall = false;
}
void endCall() { at(gCurrent).inCall = false; }
bool isInCall(int thread) { return at(thread).inCall; }
bool isRaising(int thread) { return at(thread).raising; }

void blockForEver() {
  Thread& thread = at(gCurrent);
  thread.blocked = true;
  trackAllocations(false);
  if (gAlone) fail("blocked");
  switchTo(gCurrent, next());
  __builtin_unreachable();
}

bool happensBefore(int thread, int call, int otherThread, int otherCall) {
  const auto callAt = [](int of, int number) {
    return gCalls[static_cast<std::size_t>(of)][static_cast<std::size_t>(number)];
  };
  const Step* first = callAt(thread, call).first;
  const Step* last = callAt(otherThread, otherCall).last;
  return first != nullptr && last != nullptr && happensBefore(*first, last->clock);
}

bool isOnThread() { return gCurrent != kMain; }
bool isExploring() { return isOnThread() && !gAlone; }
int currentThread() { return gCurrent; }

void reach(Operation operation) {
  if (!isExploring()) return;
  const bool tracked = areAllocationsTracked();
  trackAllocations(false);
  const int self = gCurrent;
  at(self).pending = operation;
  at(self).gaveUpOn = nullptr;
  switchTo(self, gStarting ? kMain : next());
  trackAllocations(tracked);
}

int lock(const void* address) {
  const int self = gCurrent;
  if (gAlone) {
    if (mutexAt(address).owner != kMain) fail("waits for a mutex of a thread that does not exist");
  } else {
    const int owner = mutexAt(address).owner;
    if (owner == self) fail("deadlock of a thread with itself");
    reach({Access::kLock, address});
    noteCalls();
    onAcquire(address);
  }
  mutexAt(address).owner = self;
  return 0;
}

int tryLock(const void* address) {
  const int self = gCurrent;
  if (!gAlone && at(self).gaveUpOn != address) {
    reach({Access::kTryLock, address});
    noteCalls();
  }
  if (mutexAt(address).owner != kMain) {
    at(self).gaveUpOn = address;
    return EBUSY;
  }
  if (!gAlone) onAcquire(address);
  mutexAt(address).owner = self;
  return 0;
}

int unlock(const void* address) {
  if (!gAlone) {
    if (mutexAt(address).owner != gCurrent) fail("unlocks a mutex of another thread");
    reach({Access::kUnlock, address});
    onRelease(address);
  }
  mutexAt(address).owner = kMain;
  return 0;
}

void beginRaise() { setRaising(true); }
void endRaise() { setRaising(false); }

int callAtLastAttempt(int thread) {
  return at(gCurrent).callsAtLastAttempt[static_cast<std::size_t>(thread)];
}

bool gaveUp() { return at(gCurrent).gaveUpOn != nullptr; }

void mayNotWait(bool mayNot) { at(gCurrent).mayNotWait = mayNot; }

void stayAlone() { gAlone = true; }

}  // namespace quen::interleavings
