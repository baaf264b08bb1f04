#include "tests/limits/attempts.h"

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <optional>
#include <set>
#include <thread>

#include "tests/support/limits.h"
#include "tests/support/little_memory.h"
#include "tests/support/process_state.h"

namespace fs = std::filesystem;

namespace quen::tests {

namespace {

// How many bytes the calls get. The last is enough.
constexpr std::array<std::size_t, 12> kSteps{
    0, 1'056, 1'600, 2'500, 4'300, 9'000, 18'000, 36'000, 75'000, 150'000, 1'000'000, 10'000'000};
static_assert(kSteps[1] == LittleMemory::kLeast);

Snapshot snapshotOf(const fs::path& folder) {
  Snapshot found;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder);
    found[name] = entry.is_directory() ? "/" : contents(entry.path());
  }
  return found;
}

void makeEmpty(const fs::path& folder) {
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
}

// The threads, which wait for each other, and for the one that limits the memory.
class Rounds {
 public:
  explicit Rounds(std::size_t threads) : phase_(static_cast<std::ptrdiff_t>(threads) + 1) {}

  // On a caller's thread.
  Attempt attempt(Caller& caller, std::size_t bytes) {
    Attempt made;
    made.bytes = bytes;
    makeEmpty(caller.scratch.path());
    caller.prepare();
    made.before = snapshotOf(caller.scratch.path());
    {
      const NoThreadCache empty;
      next();  // all are prepared
      next();  // the memory is limited
      caller.call();
      next();  // all have called
      next();  // there is memory again
    }
    made.outcome = caller.outcome();
    made.outcome.disk = snapshotOf(caller.scratch.path());
    caller.release();
    next();  // nothing is open any more
    next();
    return made;
  }

  // On the thread that limits the memory; without a number of bytes it does not.
  void lead(std::optional<std::size_t> bytes, const std::function<void()>& whenReleased) {
    next();
    {
      std::optional<LittleMemory> little;
      if (bytes) little.emplace(*bytes);
      next();
      next();
    }
    next();
    next();
    whenReleased();
    next();
  }

 private:
  void next() { phase_.arrive_and_wait(); }

  std::barrier<> phase_;
};

// What a call does instead if the C library has no memory and says so by an error (ENOMEM), which
// is reported as any other.
bool isFailureOfLibrary(std::string_view name, const Outcome& outcome) {
  const auto raises = [&](std::string_view message) { return outcome.raised.ends_with(message); };
  const auto calls = [&](std::string_view part) { return name.find(part) != name.npos; };
  if (calls("_listNamesNative"))  // also std::bad_alloc is raised here
    return raises(": std::bad_alloc") || raises(": Cannot enumerate directory");
  if (calls("_removeAllNative")) return raises(": Cannot remove directory recursively");
  if (calls("_writeAtomic")) return raises(": Cannot create temporary document index");
  if (calls("touch")) return raises(": Cannot create file");
  if (calls("cwd")) return outcome.raised.empty() && outcome.result.ends_with(": ");
  return raises(": Cannot open file for writing");
}

std::optional<std::string> in(const Snapshot& snapshot, const std::string& file) {
  const auto found = snapshot.find(file);
  return found == snapshot.end() ? std::nullopt : std::optional(found->second);
}

// Each entry is as before or as after the whole call; a file that is written in place may also hold
// the first part.
void expectOldOrNew(std::string_view name, const Snapshot& before, const Snapshot& whole,
                    const Snapshot& now) {
  const bool mayBePart = name.find("_writeAtomic") == name.npos;
  std::set<std::string> files;
  for (const Snapshot* each : {&before, &whole, &now}) {
    for (const auto& [file, bytes] : *each) files.insert(file);
  }
  for (const std::string& file : files) {
    const auto found = in(now, file);
    const auto written = in(whole, file);
    const bool isPart = found && written && written->starts_with(*found);
    EXPECT_TRUE(found == in(before, file) || found == written || (mayBePart && isPart)) << file;
  }
}

}  // namespace

std::vector<std::vector<Attempt>> attempt(const std::vector<std::unique_ptr<Caller>>& callers,
                                          const std::function<void()>& expectUsable) {
  const Watchdog watchdog;  // a lock that stays held blocks forever
  LittleMemory::useOneHeap();
  expectUsable();
  const auto before = openFiles();
  std::vector<std::vector<Attempt>> attempts(callers.size());
  Rounds rounds(callers.size());
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < callers.size(); ++i) {
    threads.emplace_back([&, i] {
      for (const std::size_t bytes : kSteps) {
        attempts[i].push_back(rounds.attempt(*callers[i], bytes));
      }
      attempts[i].push_back(rounds.attempt(*callers[i], 0));
    });
  }
  const auto check = [&] {
    EXPECT_EQ(openFiles(), before);
    expectUsable();
  };
  for (const std::size_t bytes : kSteps) {
    SCOPED_TRACE(bytes);
    rounds.lead(bytes, check);
  }
  rounds.lead(std::nullopt, check);
  return attempts;
}

void checkAttempts(std::string_view name, const std::vector<Attempt>& attempts, bool needsMemory) {
  const Outcome& whole = attempts.back().outcome;
  EXPECT_FALSE(whole.outOfMemory);
  for (const auto& [bytes, before, outcome] : attempts) {
    SCOPED_TRACE(bytes);
    if (outcome == whole) continue;
    EXPECT_TRUE(outcome.outOfMemory || isFailureOfLibrary(name, outcome))
        << "result \"" << outcome.result << "\" instead of \"" << whole.result << "\", raised \""
        << outcome.raised << "\"";
    expectOldOrNew(name, before, whole.disk, outcome.disk);
  }
  EXPECT_FALSE(needsMemory && attempts.front().outcome == whole);
  EXPECT_EQ(attempts[kSteps.size() - 1].outcome, whole);
}

}  // namespace quen::tests
