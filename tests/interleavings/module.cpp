// The files of the module are included, so that each schedule gets a new registry of writers.
#include "tests/interleavings/module.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>

#include "tests/interleavings/explorer.h"
#include "tests/interleavings/memory.h"
#include "writers/file_writer.cpp"
#include "writers/writer_handles.cpp"

namespace quen::interleavings {

namespace {

struct Handlers {
  void (*before)();
  void (*inParent)();
  void (*inChild)();
};

Handlers gHandlers{};
std::array<Raised, kMostThreads> gRaised{};
std::array<bool, kMostThreads> gNeverReturns{};

Raised raisedBy(const char* message) {
  struct Row {
    const char* message;
    Raised raised;
  };
  constexpr std::array<Row, 5> kRows{{
      {"Cannot open file for writing", Raised::kCannotOpen},
      {"File writer is closed", Raised::kClosed},
      {"Failed to write file", Raised::kWriteFailed},
      {"Failed to flush file", Raised::kFlushFailed},
      {"Failed to flush file before closing", Raised::kCloseFailed},
  }};
  for (const Row& row : kRows) {
    if (std::strcmp(row.message, message) == 0) return row.raised;
  }
  fail("an exception that is not documented");
  return Raised::kNothing;
}

}  // namespace

Raised takeRaised() {
  return std::exchange(gRaised[static_cast<std::size_t>(currentThread())], Raised::kNothing);
}

void neverReturnFromRaise() { gNeverReturns[static_cast<std::size_t>(currentThread())] = true; }

// The old registry is not destroyed: a schedule that was abandoned may have left it in the middle
// of a change.
void resetWriters() {
  new (&gFileWriters) Registry;
  watch(&gFileWriters, sizeof gFileWriters);
  gRaised = {};
  gNeverReturns = {};
}

// The destructor is what a process calls at its exit.
void exitWriters() { const AtExit atExit; }

void beforeFork() { gHandlers.before(); }
void afterForkInParent() { gHandlers.inParent(); }
void afterForkInChild() { gHandlers.inChild(); }

}  // namespace quen::interleavings

void quen::io::aroundForks(void (*before)(), void (*inParent)(), void (*inChild)()) {
  quen::interleavings::gHandlers = {before, inParent, inChild};
}

// The operations of the runtime. Only those of writers are called.

std::filesystem::path Quen_runtimeFsPath(const char* text) { return text; }

void Quen_raise(const char* /*exceptionClass*/, const char* message) {
  using namespace quen::interleavings;
  const auto thread = static_cast<std::size_t>(currentThread());
  beginRaise();
  if (gRaised[thread] != Raised::kNothing) fail("a call raised twice");
  gRaised[thread] = raisedBy(message);
  if (gNeverReturns[thread]) blockForEver();
  endRaise();
}

std::int64_t Quen_getField_i64(void* /*object*/, const char* /*field*/) { std::abort(); }
int Quen_isInstanceOf(void* /*object*/, const char* /*className*/) { std::abort(); }
