// Asserts each allowed difference, so that an entry of the list that no longer holds fails.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>

#include "tests/differential/story.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

Outcome call(const Form& form, std::string_view entry, const Arguments& arguments) {
  return form.call(entryPoint(entry), arguments);
}

std::int64_t openWriter(const Form& form, const std::string& path) {
  return std::stoll(call(form, "quen_io_FileWriter__openPath", {text(path), number(0)}).result);
}

Outcome write(const Form& form, std::int64_t handle, const std::string& bytes) {
  return call(form, "quen_io_FileWriter__writeHandle", {number(handle), text(bytes)});
}

Outcome flush(const Form& form, std::int64_t handle) {
  return call(form, "quen_io_FileWriter__flushHandle", {number(handle)});
}

Outcome close(const Form& form, std::int64_t handle) {
  return call(form, "quen_io_FileWriter__closeHandle", {number(handle)});
}

class AllowedDifferences : public testing::Test {
 protected:
  Judge& judge = freshJudge();
  const Form& plain = judge.plain();
  const Form& module = judge.module();
};

TEST_F(AllowedDifferences, TextsWait) {
  const std::string text(4'000, 'x');
  const std::int64_t plainHandle = openWriter(plain, "file");
  const std::int64_t moduleHandle = openWriter(module, "file");
  write(plain, plainHandle, text);
  write(module, moduleHandle, text);

  EXPECT_EQ(fs::file_size(plain.folder() / "file"), text.size());
  EXPECT_EQ(fs::file_size(module.folder() / "file"), 0u);
  close(plain, plainHandle);
  close(module, moduleHandle);
  EXPECT_EQ(judge.compareFolders(), "");
}

TEST_F(AllowedDifferences, TextsThatWaitFailWhenTheyAreFlushed) {
  const std::string text(4'000, 'x');
  const std::int64_t plainHandle = openWriter(plain, "/dev/full");
  const std::int64_t moduleHandle = openWriter(module, "/dev/full");

  EXPECT_EQ(write(plain, plainHandle, text).exception, "IOException: Failed to write file");
  EXPECT_EQ(write(module, moduleHandle, text).exception, "");
  EXPECT_EQ(flush(plain, plainHandle).exception, "IOException: Failed to flush file");
  EXPECT_EQ(flush(module, moduleHandle).exception, "IOException: Failed to flush file");
  close(plain, plainHandle);
  close(module, moduleHandle);
}

TEST_F(AllowedDifferences, FewerSystemCalls) {
  const auto left = [](const Form& form) {
    const fs::path pipe = form.folder() / "pipe";
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int held = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::write(held, "0123456789", 10), 10);
    EXPECT_EQ(call(form, "quen_io_FileReader__readPrefixPath", {text("pipe"), number(4)}).result,
              "String \"0123\"");
    int waiting = 0;
    EXPECT_EQ(ioctl(held, FIONREAD, &waiting), 0);
    ::close(held);
    return waiting;
  };
  EXPECT_EQ(left(plain), 0);
  EXPECT_EQ(left(module), 6);
}

TEST_F(AllowedDifferences, FewerSystemCallsNearTheLargestPosition) {
  judge.inBoth([](const fs::path& folder) { std::ofstream(folder / "hole").close(); });
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  if (truncate((plain.folder() / "hole").c_str(), kLargest) != 0) {
    GTEST_SKIP() << "no file of this size here";
  }
  ASSERT_EQ(truncate((module.folder() / "hole").c_str(), kLargest), 0);

  const Arguments arguments = {text("hole"), number(kLargest - 4'096), emptyBytes(10), number(10)};
  EXPECT_EQ(call(plain, "quen_io_FileInputStream__readBytesPath", arguments).exception,
            "IOException: Failed to read file");
  EXPECT_EQ(call(module, "quen_io_FileInputStream__readBytesPath", arguments).result, "10");
}

TEST_F(AllowedDifferences, ClosedOnExec) {
  const auto closesOnExec = [](const Form& form) {
    const int descriptor = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    ::close(descriptor);  // the writer gets the lowest free descriptor
    const std::int64_t handle = openWriter(form, "file");
    const int flags = fcntl(descriptor, F_GETFD);
    EXPECT_NE(flags, -1);
    close(form, handle);
    return (flags & FD_CLOEXEC) != 0;
  };
  EXPECT_FALSE(closesOnExec(plain));
  EXPECT_TRUE(closesOnExec(module));
}

// Both forms buffer a text of up to 1,000 bytes until the flush.
TEST_F(AllowedDifferences, NothingWrittenTwice) {
  const auto sizeOf = [](const Form& form) {
    Story story(form);
    story.inChild([&](Story&) {
      std::signal(SIGXFSZ, SIG_IGN);
      const std::int64_t handle = openWriter(form, "file");
      for (int i = 0; i < 5; ++i) write(form, handle, std::string(1'000, 'x'));
      rlimit limit{};
      getrlimit(RLIMIT_FSIZE, &limit);
      const rlimit small{4'000, limit.rlim_max};
      setrlimit(RLIMIT_FSIZE, &small);
      flush(form, handle);
      setrlimit(RLIMIT_FSIZE, &limit);
      close(form, handle);
    });
    return fs::file_size(form.folder() / "file");
  };
  EXPECT_EQ(sizeOf(plain), 9'000u);
  EXPECT_EQ(sizeOf(module), 5'000u);
}

TEST_F(AllowedDifferences, ExhaustedMemory) {
  if (tests::kSanitized) GTEST_SKIP() << "sanitizers take more address space than is left here";
  judge.inBoth([](const fs::path& folder) {
    std::ofstream(folder / "hole").close();
    constexpr off_t kLarge = off_t{1} << 40;
    ASSERT_EQ(truncate((folder / "hole").c_str(), kLarge), 0);
  });
  const auto thrown = [](const Form& form) {
    Story story(form);
    story.inChild([&](Story& child) {
      std::ifstream pages("/proc/self/statm");
      rlim_t used = 0;
      pages >> used;
      constexpr rlim_t kRoom = rlim_t{64} << 20;
      const rlim_t limit = used * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kRoom;
      const rlimit memory{limit, limit};
      setrlimit(RLIMIT_AS, &memory);
      const Outcome outcome = call(form, "quen_io_FileReader__readAllTextPath", {text("hole")});
      child.tell(outcome.thrown + (outcome.leaksDescriptor ? ", and leaks a descriptor" : ""));
    });
    return story.told();
  };
  EXPECT_EQ(thrown(module), "no memory\nended with 0\n");
}

// How often the signal was handled.
std::atomic<int> gInterruptions{0};

// Reads a FIFO without a writer while the thread receives signals: up to the given number, after
// which the other end is opened and closed, or until the call has returned.
std::string exceptionOfInterruptedOpen(const Form& form, int signals) {
  const fs::path pipe = form.folder() / "pipe";
  EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::atomic<bool> returned = false;
  gInterruptions = 0;
  std::thread other([&, reader = pthread_self()] {
    while (!returned) {
      if (gInterruptions < signals) pthread_kill(reader, SIGUSR1);
      // With O_NONBLOCK, fails with ENXIO unless a reader waits.
      const bool enough = gInterruptions >= signals;
      const int end = enough ? open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
      if (end >= 0) ::close(end);
      std::this_thread::yield();
    }
  });
  const Outcome outcome = call(form, "quen_io_FileReader__readAllTextPath", {text("pipe")});
  returned = true;
  other.join();
  return outcome.exception;
}

TEST_F(AllowedDifferences, RetriedOpen) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++gInterruptions; };  // and no SA_RESTART
  sigaction(SIGUSR1, &action, &before);
  EXPECT_EQ(exceptionOfInterruptedOpen(plain, std::numeric_limits<int>::max()),
            "IOException: Cannot open file");
  EXPECT_EQ(exceptionOfInterruptedOpen(module, 1'000), "");
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(AllowedDifferences, AreAllExplained) {
  std::ifstream file(QUEN_IO_DIFFERENTIAL_DOCUMENT);
  const std::string document{std::istreambuf_iterator<char>(file), {}};
  for (const AllowedDifference& each : kAllowedDifferences) {
    EXPECT_NE(document.find(each.name), std::string::npos) << each.name;
  }
}

}  // namespace
}  // namespace quen::differential
