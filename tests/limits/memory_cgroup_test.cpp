// A process that the kernel kills at any moment, because its memory cgroup is full: what is on disk
// afterwards. Skipped where no such cgroup can be made.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/limits.h"
#include "tests/support/memory_group.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr int kRounds = 10;

// Touches memory until the kernel ends the process.
void useUpMemory() {
  std::vector<std::string> used;
  while (true) {
    used.emplace_back(std::size_t{64} << 10, 'm');
    std::this_thread::yield();
  }
}

class FullCgroup : public BoundaryTest {
 protected:
  void limit(std::size_t bytes) {
    group_.reset();
    group_.emplace(bytes);
  }

  bool isMissing() const { return !group_->missing().empty(); }
  std::string missing() const { return group_->missing(); }

  // Runs the body in a child process of the group. The signal that ended it, and 0 for none.
  int signalOf(const std::function<void()>& body) const {
    static_cast<void>(std::fflush(nullptr));
    const pid_t child = fork();
    EXPECT_NE(child, -1);
    if (child == 0) {
      const Watchdog watchdog;
      if (!group_->enter()) _exit(2);
      body();
      _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

  // The same, while another thread uses up the memory.
  int signalOfFull(const std::function<void()>& body) const {
    return signalOf([&body] {
      const std::jthread other(useUpMemory);
      while (true) body();
    });
  }

 private:
  std::optional<MemoryGroup> group_;
};

TEST_F(FullCgroup, LeavesTheOldOrTheNewIndex) {
  const fs::path index = scratch.file("index", std::string(kMebibyte, 'a'));
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    limit((20 + static_cast<std::size_t>(round)) * kMebibyte);
    if (isMissing()) GTEST_SKIP() << missing();

    std::string version(kMebibyte, 'a');
    const int signal = signalOfFull([&] {
      std::ranges::fill(version, version[0] == 'z' ? 'a' : static_cast<char>(version[0] + 1));
      quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), version.c_str());
    });

    EXPECT_EQ(signal, SIGKILL);
    const std::string found = contents(index);
    EXPECT_EQ(found.size(), kMebibyte);
    EXPECT_EQ(std::ranges::count(found, found[0]), static_cast<std::ptrdiff_t>(kMebibyte));
    // Nobody is left to remove the temporary file of the publication that was cut short.
    for (const auto& entry : fs::directory_iterator(scratch.path())) {
      if (entry.path() == index) continue;
      EXPECT_TRUE(entry.path().native().starts_with(index.native() + ".tmp-")) << entry.path();
      fs::remove(entry.path());
    }
  }
}

// The lines are numbered, and reach the file in order.
TEST_F(FullCgroup, LeavesTheFirstPartOfWhatWasWrittenThroughAHandle) {
  const fs::path file = scratch / "file";
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    limit((20 + static_cast<std::size_t>(round)) * kMebibyte);
    if (isMissing()) GTEST_SKIP() << missing();

    std::int64_t handle = 0;
    std::int64_t lines = 0;
    const int signal = signalOfFull([&] {
      if (handle == 0) handle = quen_io_FileWriter__openPath(file.c_str(), 0);
      const std::string line = std::to_string(lines++) + "\n";
      quen_io_FileWriter__writeHandle(handle, line.c_str());
      if (lines % 1000 == 0) quen_io_FileWriter__flushHandle(handle);
    });

    EXPECT_EQ(signal, SIGKILL);
    std::ifstream written(file);
    std::int64_t expected = 0;
    for (std::string line; std::getline(written, line); ++expected) {
      const std::string whole = std::to_string(expected);
      ASSERT_TRUE(written.eof() ? whole.starts_with(line) : whole == line) << line;
    }
    EXPECT_GT(expected, 0);
  }
}

TEST_F(FullCgroup, EndsAReadThatDoesNotFitAndChangesNothing) {
  const fs::path file = scratch.file("file", std::string(64 * kMebibyte, 't'));
  limit(48 * kMebibyte);
  if (isMissing()) GTEST_SKIP() << missing();

  EXPECT_EQ(signalOf([&] { quen_io_FileReader__readAllTextPath(file.c_str()); }), SIGKILL);

  EXPECT_EQ(fs::file_size(file), 64 * kMebibyte);
}

// Only what is touched counts: a large limit or count reserves address space.
TEST_F(FullCgroup, DoesNotEndAReadOfLittleWithALargeLimit) {
  const fs::path file = scratch.file("file", "text");
  limit(16 * kMebibyte);
  if (isMissing()) GTEST_SKIP() << missing();

  const auto read = [&] {
    constexpr std::int64_t kGibibyte = std::int64_t{1} << 30;
    void* text = quen_io_FileReader__readPrefixPath(file.c_str(), kGibibyte);
    void* bytes = newByteArray(std::size_t{4});
    const auto count = quen_io_FileInputStream__readBytesPath(file.c_str(), 0, bytes, kGibibyte);
    if (stringBytes(text) != "text" || count != 4) _exit(1);
  };
  EXPECT_EQ(signalOf(read), 0);
}

}  // namespace
