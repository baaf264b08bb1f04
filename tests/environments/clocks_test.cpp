// Clocks and file times outside of the usual range: before 1970, after 2106 (32 bits), and beyond
// what 64 bits of nanoseconds express (1677 to 2262).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tests/environments/every_call.h"
#include "tests/support/next_definition.h"
#include "tests/support/sanitized.h"

namespace {

// The time that the clocks of this process show, if set.
std::optional<std::time_t> gTime;

}  // namespace

// Takes the place of the C library's, also for the C++ library and the module.
__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static auto* const next = quen::tests::nextDefinition<int(clockid_t, timespec*)>("clock_gettime");
  const int result = next(clock, time);
  if (result == 0 && clock == CLOCK_REALTIME && gTime) *time = {*gTime, 500'000'000};
  return result;
}

namespace quen::differential {
namespace {

// Seconds since 1970.
constexpr std::int64_t kYear1600 = -11'676'096'000;
constexpr std::int64_t kYear1800 = -5'364'662'400;
constexpr std::int64_t kYear1900 = -2'208'988'800;
constexpr std::int64_t kYear2200 = 7'258'118'400;
constexpr std::int64_t kYear2300 = 10'413'792'000;
constexpr std::int64_t kYear9999 = 253'370'764'800;
constexpr std::int64_t kLast = 9'223'372'036;  // in nanoseconds the last whole second of 64 bits

struct stat statusOf(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
  return status;
}

// Sets the modification time as far as the file system can express it. Returns the time set.
std::int64_t setTime(const std::string& file, std::int64_t second) {
  const std::array<timespec, 2> times = {{{0, 0}, {second, 250'000'000}}};
  EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0) << second;
  return statusOf(file).st_mtim.tv_sec;
}

// Equal outcomes are all that can be asked beyond the range of the file clock.
TEST(Environments, FileTimesOutsideOfTheUsualRange) {
  for (const std::int64_t second :
       {-9 * kYear9999, kYear1600, -kLast - 1, -kLast, kYear1800, kYear1900, std::int64_t{-1},
        kYear2200, kLast - 1, kLast, kLast + 1, kYear2300, kYear9999}) {
    SCOPED_TRACE(second);
    const std::string told = expectSame([&](Story& story) {
      const std::string file = story / "file";
      std::ofstream(file) << "text";
      if (setTime(file, second) != second) return story.tell("no such time on this file system");
      for (const char* entry :
           {"quen_io_Path__lastModified", "__quen_propget_quen_io_Path_lastModified"}) {
        story.call(entry, {path("file")});
      }
      story.call("quen_io_Path_rename", {path("file"), text("renamed")});
      story.call("quen_io_FilePath_touch", {path("renamed")});
      const std::int64_t age = std::time(nullptr) - statusOf(story / "renamed").st_mtim.tv_sec;
      story.tell(age < 60 ? "touched now" : "touched at another time");
    });
    EXPECT_NE(count(told, "touched now"), count(told, "no such time"));
  }
}

// touch sets the time that the clock shows.
TEST(Environments, ClocksOutsideOfTheUsualRange) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "the C++ library reads a clock of 32 bits";
  std::vector<std::int64_t> seconds = {kYear1900, -1, 0, 4'294'967'296, kYear2200, kLast - 1};
  // Beyond its range, the C++ library's conversion overflows, which the sanitizer reports.
  if (!tests::kSanitized) seconds.insert(seconds.end(), {kYear1800, kLast + 1, kYear2300});
  for (const std::int64_t second : seconds) {
    SCOPED_TRACE(second);
    const std::string told = expectSame([&](Story& story) {
      std::ofstream(story / "old") << "text";
      gTime = second;
      story.call("quen_io_Path_touch", {path("old")});
      story.tell("touched at " + std::to_string(statusOf(story / "old").st_mtim.tv_sec));
      story.call("quen_io_Path__lastModified", {path("old")});
      story.call("quen_data_internal_DocumentIndexStore__writeAtomic", {text("old"), text("new")});
      story.call("quen_io_FolderPath__listNamesNative", {text("@")});
      gTime.reset();
      story.call("quen_io_Path_touch", {path("old")});
    });
    EXPECT_EQ(count(told, "raised"), 0);
    if (second > kYear1800 && second < kLast) {
      EXPECT_EQ(count(told, "touched at " + std::to_string(second)), 1);
    }
  }
}

}  // namespace
}  // namespace quen::differential
