// Stress tests of concurrent operations. The interleaving is left to the scheduler, so each test
// only asserts what holds for every interleaving.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <latch>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/generator.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

constexpr std::size_t kRounds = generatedInputs(1000);
constexpr int kThreads = 4;

class Races : public BoundaryTest {
 protected:
  // A forked process, killed by the destructor unless it was waited for.
  class OtherProcess {
   public:
    explicit OtherProcess(const std::function<void()>& work) : process_(fork()) {
      if (process_ != 0) return;
      work();
      std::_Exit(0);
    }
    ~OtherProcess() { kill(); }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    void kill() {
      if (process_ == 0) return;
      ::kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
      process_ = 0;
    }

    // Waits for the process to exit, and returns its wait status.
    int wait() {
      int status = -1;
      waitpid(process_, &status, 0);
      process_ = 0;
      return status;
    }

   private:
    pid_t process_;
  };

  // A version of an index: one letter repeated, with a length that depends on the letter.
  static std::string version(std::size_t number) {
    const std::size_t letter = number % 26;
    return std::string(4000 + 100 * letter, static_cast<char>('a' + letter));
  }

  static bool isWhole(const std::string& text) {
    return !text.empty() && text == version(static_cast<std::size_t>(text[0] - 'a'));
  }

  static void publish(const fs::path& target, std::size_t number) {
    quen_data_internal_DocumentIndexStore__writeAtomic(target.c_str(), version(number).c_str());
  }

  // Varies the interleaving; nothing relies on how long it takes.
  static void pause(std::size_t microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  }

  Generator generator;
};

// A write either precedes the close, and its text is in the file, or it loses the race: the handle
// is unknown, or was looked up before the close and its file is closed.
TEST_F(Races, OfWritersAndACloseEndInOneOfThreeWays) {
  for (std::size_t round = 0; round < kRounds; ++round) {
    const fs::path file = scratch / "file";
    const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), 0);
    std::latch start(kThreads + 1);
    std::atomic<std::size_t> written{0};
    {
      std::vector<std::jthread> writers;
      for (int thread = 0; thread < kThreads; ++thread) {
        writers.emplace_back([&, line = "line of thread " + std::to_string(thread) + "\n"] {
          start.arrive_and_wait();
          for (;;) {
            quen_io_FileWriter__writeHandle(handle, line.c_str());
            const auto exception = takeException();
            if (!exception) {
              ++written;
              continue;
            }
            EXPECT_TRUE(exception->message == "File writer is closed" ||
                        exception->message == "Failed to write file")
                << exception->message;
            return;
          }
        });
      }
      start.arrive_and_wait();
      pause(generator.below(200));
      quen_io_FileWriter__closeHandle(handle);
      EXPECT_EQ(raised(), "");
    }
    std::istringstream lines(contents(file));
    std::size_t found = 0;
    for (std::string line; std::getline(lines, line); ++found) {
      ASSERT_EQ(line.substr(0, 15), "line of thread ");
      ASSERT_EQ(line.size(), 16u);
    }
    ASSERT_EQ(found, written);
  }
}

TEST_F(Races, OfThousandsOfHandlesKeepThemApart) {
  std::vector<std::jthread> threads;
  std::latch start(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      start.arrive_and_wait();
      for (std::size_t round = 0; round < kRounds; ++round) {
        const std::string text = std::to_string(thread) + " " + std::to_string(round);
        const fs::path file = scratch / ("file" + std::to_string(thread));
        const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), 0);
        quen_io_FileWriter__writeHandle(handle, text.c_str());
        quen_io_FileWriter__flushHandle(handle);
        EXPECT_EQ(contents(file), text);
        quen_io_FileWriter__closeHandle(handle);
        EXPECT_EQ(raised(), "");
      }
    });
  }
}

TEST_F(Races, OfPublicationsShowEveryReaderAWholeVersion) {
  const fs::path target = scratch / "index";
  publish(target, 0);
  std::vector<std::jthread> publishers;
  std::atomic<int> running{kThreads};
  for (int thread = 0; thread < kThreads; ++thread) {
    publishers.emplace_back([&, thread] {
      for (std::size_t round = 0; round < kRounds; ++round) {
        publish(target, round + static_cast<std::size_t>(thread));
        EXPECT_EQ(raised(), "");
      }
      --running;
    });
  }
  std::size_t readings = 0;
  for (; running > 0 || readings == 0; ++readings) {
    const Scope objectsOfThisReading;
    ASSERT_TRUE(isWhole(text(quen_io_FileReader__readAllTextPath(target.c_str()))));
  }
  publishers.clear();
  EXPECT_EQ(namesIn(scratch.path()), "index");
}

// The number in the name of a temporary is counted per process. Each process starts at another
// number, because nothing protects two processes that write to the same temporary.
TEST_F(Races, OfPublishingProcessesShowEveryReaderAWholeVersion) {
  const fs::path target = scratch.folder("inner") / "index";
  publish(target, 0);
  const auto publishing = [&](std::size_t process) {
    return [&, process] {
      for (std::size_t number = 0; number < process * 100'000; ++number) {
        publish("/proc/no/such/folder", 0);
        takeException();
      }
      for (std::size_t round = 0;; ++round) publish(target, round);
    };
  };
  OtherProcess one(publishing(0));
  OtherProcess two(publishing(1));
  OtherProcess three(publishing(2));
  for (std::size_t reading = 0; reading < 20 * kRounds; ++reading) {
    const Scope objectsOfThisReading;
    ASSERT_TRUE(isWhole(text(quen_io_FileReader__readAllTextPath(target.c_str()))));
  }
  for (OtherProcess* each : {&one, &two, &three}) each->kill();
  fs::remove_all(scratch / "inner");  // with the temporaries of the killed processes
}

TEST_F(Races, OfAPublisherAndItsDeathLeaveAWholeVersion) {
  const fs::path target = scratch.folder("inner") / "index";
  publish(target, 0);
  for (std::size_t round = 0; round < kRounds; ++round) {
    OtherProcess publisher([&] {
      for (std::size_t number = round;; ++number) publish(target, number);
    });
    pause(generator.below(3000));
    publisher.kill();
    ASSERT_TRUE(isWhole(contents(target))) << generator.describe();
  }
  fs::remove_all(scratch / "inner");  // with the temporaries of the killed processes
}

// readdir(3) does not specify whether it returns entries created or removed meanwhile, but no name
// may come twice and no lasting entry may be missing.
TEST_F(Races, OfAListingAndChangesListWhatStays) {
  const fs::path folder = scratch.folder("folder");
  for (int number = 0; number < 100; ++number) {
    scratch.file("folder/stays-" + std::to_string(number));
  }
  const OtherProcess changing([&] {
    for (std::size_t number = 0;; ++number) {
      const std::string name = folder / ("passes-" + std::to_string(number % 50));
      close(open(name.c_str(), O_CREAT | O_WRONLY, 0600));
      unlink(name.c_str());
    }
  });
  for (std::size_t round = 0; round < kRounds; ++round) {
    const Scope objectsOfThisListing;
    const std::vector<std::string> names =
        listStrings(quen_io_FolderPath__listNamesNative(folder.c_str()));
    ASSERT_EQ(raised(), "");
    const std::set<std::string> known(names.begin(), names.end());
    ASSERT_EQ(known.size(), names.size());
    ASSERT_EQ(std::ranges::count_if(known, [](auto& name) { return name.starts_with("stays-"); }),
              100);
    for (const std::string& name : known) {
      ASSERT_TRUE(name.starts_with("stays-") || name.starts_with("passes-")) << name;
    }
  }
}

// Another process exchanges a folder in the tree with a link to a folder outside, over and over.
TEST_F(Races, OfARemovalAndALinkNeverTouchWhatIsOutside) {
  const fs::path outside = scratch.folder("outside");
  scratch.file("outside/kept", "kept");
  scratch.link("link", outside);
  const std::string inner = scratch / "tree/inner";
  const std::string link = scratch / "link";
  const OtherProcess swapping([&] {
    for (;;) renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, inner.c_str(), RENAME_EXCHANGE);
  });
  for (std::size_t round = 0; round < kRounds; ++round) {
    fs::create_directories(inner);
    for (int number = 0; number < 10; ++number) {
      std::fclose(std::fopen((inner + "/" + std::to_string(number)).c_str(), "w"));
    }
    quen_io_FolderPath__removeAllNative((scratch / "tree").c_str());
    raised();  // the exchange may make the removal fail
    // The loop above may have created files through the link, but existing files must stay.
    ASSERT_EQ(contents(outside / "kept"), "kept");
    std::error_code swapped;
    while (fs::exists(scratch / "tree")) fs::remove_all(scratch / "tree", swapped);
  }
}

// The homes are read at the first call in a process, so each round needs a child.
TEST_F_IN_FRESH_PROCESS(Races, OfFirstCallsOfTheGuardProtectTheHome) {
  setenv("HOME", scratch.folder("home").c_str(), 1);
  unsetenv("QUEN_HOME");
  for (std::size_t round = 0; round < kRounds; ++round) {
    OtherProcess caller([&] {
      std::atomic<int> wrong{0};
      {
        std::latch start(kThreads);
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
          threads.emplace_back([&] {
            start.arrive_and_wait();
            if (!Quen_isUnsafeRecursiveDeletePath((scratch / "home").c_str())) ++wrong;
            if (Quen_isUnsafeRecursiveDeletePath((scratch / "other").c_str())) ++wrong;
          });
        }
      }
      std::_Exit(wrong);
    });
    ASSERT_EQ(caller.wait(), 0);
  }
}

// Threads write while the process runs its exit handlers. The process does not crash, and the file
// consists of whole lines.
TEST_F(Races, OfAnExitAndWritersLeaveWholeLines) {
  const fs::path file = scratch / "file";
  for (std::size_t round = 0; round < kRounds; ++round) {
    OtherProcess exiting([&] {
      const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), 0);
      for (int thread = 0; thread < kThreads; ++thread) {
        std::thread([handle] {
          for (;;) quen_io_FileWriter__writeHandle(handle, "a whole line\n");
        }).detach();
      }
      pause(generator.below(1000));
      std::exit(0);
    });
    ASSERT_EQ(exiting.wait(), 0);
    std::istringstream lines(contents(file));
    for (std::string line; std::getline(lines, line);) {
      ASSERT_EQ(line, lines.eof() ? line : "a whole line");
    }
  }
}

}  // namespace
