// Runs the threads of a small program under every schedule, at the level of their operations on
// mutexes, atomics and files: stateless model checking with dynamic partial-order reduction
// (Flanagan and Godefroid, POPL 2005) and sleep sets (Godefroid, LNCS 1032).
//
// The threads are coroutines of one thread of the operating system. Each gives control up before
// every operation, so that the explorer decides whose operation comes next. A schedule that only
// swaps neighbouring independent operations of an earlier one is not run again.
//
// Code whose threads are to be explored is compiled with -fsanitize=thread, and linked with
// instrumentation.cpp in place of the thread sanitizer's runtime.
#pragma once

#include <cstdint>
#include <string>

namespace quen::interleavings {

inline constexpr int kMostThreads = 3;
inline constexpr int kMostCalls = 8;  // of a thread

enum class Access : std::uint8_t {
  kNone,
  kLock,
  kTryLock,
  kUnlock,
  kRaise,       // the begin or the end of Quen_raise under a mutex
  kLoad,        // of an atomic
  kStore,       // the same, or an atomic exchange
  kCount,       // of a reference count, of which only the arrival at zero is observed
  kFile,        // any operation on a file
  kEverything,  // a copy of the whole state, such as a fork
};

struct Operation {
  Access access = Access::kNone;
  const void* object = nullptr;
  int change = 0;  // of a reference count
};

// The threads to explore. They have to be deterministic but for the schedule.
class Program {
 public:
  Program() = default;
  virtual ~Program() = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  virtual int threads() const = 0;

  // Runs before the threads of each schedule.
  virtual void begin() = 0;

  virtual void run(int thread) = 0;

  // Runs after the threads of each schedule; not if one of them never returned.
  virtual void finish() = 0;

  // Looks at the results of a schedule that was run to its end, and calls fail() if they are wrong.
  // Memory that the schedule allocated is gone.
  virtual void judge() = 0;
};

// The schedules that are run: one of each equivalence class, or all, to test the reduction itself.
enum class Schedules { kReduced, kAll };

struct Exploration {
  std::uint64_t schedules = 0;   // run to the end
  std::uint64_t abandoned = 0;   // equivalent to an earlier one, which was noticed on the way
  std::uint64_t operations = 0;  // the longest schedule
  std::string failure;           // the first one, with its schedule; empty if there was none
};

// Explores until the first failure. Besides what the program finds: a deadlock, a data race, a use
// of freed memory, a leak of memory.
Exploration explore(Program& program, Schedules schedules = Schedules::kReduced);

// Has the process two threads for a moment, from which on the C++ library uses atomic operations
// for the counts of std::shared_ptr. To be called by main.
void haveSeveralThreads();

// Records the first failure of a schedule. It does not return to the caller if a thread of the
// program is running.
void fail(const char* message);

// For the threads of a program.

// Says that the current thread begins its next call, which is to be compared with others.
void beginCall();

void endCall();

// Whether the thread has made the first operation of the call that it began last, and has not ended
// it.
bool isInCall(int thread);

// Whether the thread is inside Quen_raise and holds a mutex.
bool isRaising(int thread);

// From now on the current thread takes no further step, as if it were blocked for ever. A thread
// that waits for it is no deadlock.
[[noreturn]] void blockForEver();

// Whether a call has an operation that happens before one of another call (or is the same). Calls
// of a thread count from 0. For judge().
bool happensBefore(int thread, int call, int otherThread, int otherCall);

// For the instrumentation.

// Whether a thread of a program is running, and whether others do, too.
bool isOnThread();
bool isExploring();
int currentThread();

// Gives control up until the operation is the next one to be made.
void reach(Operation operation);

// The mutexes of the explored program. Return as the functions of pthread_mutex_t do.
int lock(const void* mutex);
int tryLock(const void* mutex);
int unlock(const void* mutex);

// Calls to a runtime that may take long, while the current thread holds a mutex.
void beginRaise();
void endRaise();

// Whether the last attempt of the current thread to take a mutex within a limited time failed.
bool gaveUp();

// The call in which a thread was when the current one last attempted to take a mutex; -1 if it was
// in none.
int callAtLastAttempt(int thread);

// Says that the current thread may not wait for a mutex.
void mayNotWait(bool mayNot);

// Leaves only the current thread, as in the child of a fork: operations are made at once, and
// waiting for a mutex of another thread is a failure, which ends the process with status 1.
void stayAlone();

}  // namespace quen::interleavings
