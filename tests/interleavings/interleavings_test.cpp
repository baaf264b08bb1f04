// All schedules of small programs that call the entry points of writers: no deadlock, no data race,
// no use of what was freed or closed, calls that are linearizable, and what docs/behaviour.md and
// docs/boundary.md promise for exit and fork. And the explorer itself.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>

#include "tests/interleavings/families.h"
#include "tests/interleavings/small_programs.h"

using namespace quen::interleavings;

namespace {

class Interleavings : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Interleavings, OfWritersKeepWhatTheDocumentsPromise) {
  const auto [threads, calls] = GetParam();
  for (const Family& family : families(threads, calls)) {
    const Total total = explore(family);

    EXPECT_EQ(total.failure, "") << family.name;
    EXPECT_GT(total.schedules, total.programs) << family.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Bounds, Interleavings,
                         testing::Values(std::tuple(2, 2), std::tuple(3, 1)));

std::string failureOf(const std::string& name) {
  const std::string failure = explore(*smallProgram(name)).failure;
  return failure.substr(0, failure.find(','));
}

std::uint64_t schedulesOf(const std::string& name, Schedules schedules) {
  const Exploration exploration = explore(*smallProgram(name), schedules);
  EXPECT_EQ(exploration.failure, "");
  return exploration.schedules;
}

TEST(Explorer, RunsEachOrderOfCriticalSectionsOnce) {
  EXPECT_EQ(schedulesOf("three critical sections", Schedules::kReduced), 3 * 2 * 1);
}

TEST(Explorer, RunsOneOrderOfWhatIsIndependent) {
  EXPECT_EQ(schedulesOf("three mutexes", Schedules::kReduced), 1);
}

// The binomial coefficient of 4 over 2, and the multinomial one of 6 over 2, 2 and 2.
TEST(Explorer, RunsAllOrdersIfAsked) {
  EXPECT_EQ(schedulesOf("two atomic additions each", Schedules::kAll), 6);
  EXPECT_EQ(schedulesOf("two atomic additions each", Schedules::kReduced), 6);
  EXPECT_EQ(schedulesOf("three mutexes", Schedules::kAll), 90);
}

TEST(Explorer, FindsMistakes) {
  EXPECT_EQ(failureOf("data race"), "data race");
  EXPECT_EQ(failureOf("flag without order"), "data race");
  EXPECT_EQ(failureOf("two mutexes in both orders"), "deadlock");
  EXPECT_EQ(failureOf("use of freed memory"), "use of freed memory");
  EXPECT_EQ(failureOf("leak"), "memory leak");
}

TEST(Explorer, FindsNoMistakeWhereThereIsNone) {
  EXPECT_EQ(failureOf("flag that publishes"), "");
  EXPECT_EQ(failureOf("two mutexes in one order"), "");
  EXPECT_EQ(failureOf("owners of one object"), "");
}

// The reduction leaves no outcome out, and enumerates far fewer schedules.
TEST(Explorer, FindsTheSameOutcomesWithAndWithoutReduction) {
  std::uint64_t all = 0;
  std::uint64_t reduced = 0;
  for (const Family& family : families(2, 1)) {
    for (const Rows& rows : family.programs) {
      WriterProgram whole(rows, family.disk);
      const Exploration every = explore(whole, Schedules::kAll);
      WriterProgram part(rows, family.disk);
      const Exploration some = explore(part, Schedules::kReduced);

      EXPECT_EQ(every.failure, "");
      EXPECT_EQ(some.failure, "");
      EXPECT_EQ(whole.outcomes(), part.outcomes()) << rows[0] << ' ' << rows[1];
      all += every.schedules;
      reduced += some.schedules;
    }
  }
  EXPECT_GT(all, 10 * reduced);
}

}  // namespace

int main(int count, char** arguments) {
  haveSeveralThreads();
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
