// Unusual conditions of the process: resource limits, signals, small stacks, forks and exits.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/differential/story.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

// Calls every entry point once, on ordinary files and a writer that is already open.
void callEverything(Story& story, std::int64_t handle) {
  for (const EntryPoint& entry : entryPoints()) {
    Arguments arguments;
    for (const char role : entry.roles) {
      switch (role) {
        case 'o': arguments.push_back(path("file")); break;
        case 'd': arguments.push_back(text("operand")); break;
        case 'p': arguments.push_back(text("file")); break;
        case 'n': arguments.push_back(text("renamed")); break;
        case 't': arguments.push_back(text("text")); break;
        case 'B': arguments.push_back(bytes("bytes")); break;
        case 'h': arguments.push_back(number(handle)); break;
        default: arguments.push_back(number(entry.roles.ends_with('a') ? 1 : 3)); break;
      }
    }
    if (entry.roles.ends_with('a')) {
      story.open("other");
    } else {
      story.call(entry.name, arguments);
    }
  }
  story.call("quen_io_FolderPath__mkdirsNative", {text("tree/of/folders")});
  story.call("quen_io_FolderPath__listNamesNative", {text("tree")});
  story.call("quen_io_FolderPath__removeAllNative", {text("tree")});
}

void makeFiles(const Story& story) {
  std::ofstream(story / "file") << std::string(5'000, 'f');
  fs::create_directory(story / "folder");
}

// Limits.

TEST(OddProcesses, NoDescriptorLeft) {
  expectSame([](Story& story) {
    makeFiles(story);
    const std::int64_t handle = story.open("written");
    story.inChild([&](Story& child) {
      const rlimit none{3, 3};
      for (int i = 3; i < 1'000; ++i) {
        if (fcntl(i, F_GETFD) == -1) open("/dev/null", O_RDONLY);
      }
      setrlimit(RLIMIT_NOFILE, &none);
      callEverything(child, handle);
    });
    story.call("quen_io_FileWriter__closeHandle", {number(handle)});
  });
}

TEST(OddProcesses, FilesMayNotGrow) {
  for (const std::size_t size : {1'000UL, 4'000UL, 5'000UL, 5'001UL, 9'000UL, 300'000UL}) {
    SCOPED_TRACE(size);
    const std::string content(size, 'x');
    expectSame([&](Story& story) {
      story.inChild([&](Story& child) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{5'000, 5'000};
        for (const char* name : {"a", "b", "c", "d", "e"}) std::ofstream(story / name) << "before";
        const std::int64_t handle = child.open("a");
        const std::int64_t appending = child.open("b", true);
        setrlimit(RLIMIT_FSIZE, &limit);
        for (const std::int64_t each : {handle, appending}) {
          child.form().call(entryPoint("quen_io_FileWriter__writeHandle"),
                            {number(each), text(content)});
          child.call("quen_io_FileWriter__flushHandle", {number(each)});
          child.call("quen_io_FileWriter__flushHandle", {number(each)});
          child.call("quen_io_FileWriter__closeHandle", {number(each)});
        }
        child.call("quen_io_FileWriter__writePath", {text("c"), text(content)});
        child.call("quen_io_FileOutputStream__appendBytesPath", {text("d"), bytes(content)});
        child.call("quen_data_internal_DocumentIndexStore__writeAtomic",
                   {text("e"), text(content)});
      });
    });
  }
}

// Signals.

// How often the signal was handled.
std::atomic<int> gInterruptions{0};

// A signal interrupts the blocked read before each chunk.
TEST(OddProcesses, SignalsInterruptReadingAPipe) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++gInterruptions; };  // and no SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  expectSame([](Story& story) {
    ASSERT_EQ(mkfifo((story / "pipe").c_str(), 0600), 0);
    const int pipe = open((story / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    std::thread writer([pipe, reader = pthread_self()] {
      for (int i = 0; i < 50; ++i) {
        const std::string chunk(3'000, static_cast<char>('a' + i % 26));
        if (write(pipe, chunk.data(), chunk.size()) != std::ssize(chunk)) break;
        int waiting = 1;
        while (ioctl(pipe, FIONREAD, &waiting) == 0 && waiting > 0) std::this_thread::yield();
        const int handled = gInterruptions;
        pthread_kill(reader, SIGUSR1);
        while (gInterruptions == handled) std::this_thread::yield();
      }
      close(pipe);
    });
    story.call("quen_io_FileReader__readAllTextPath", {text("pipe")});
    writer.join();
  });
  sigaction(SIGUSR1, &before, nullptr);
}

// A signal interrupts the blocked write after each chunk that is read from the pipe.
TEST(OddProcesses, SignalsInterruptWritingToAPipe) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++gInterruptions; };  // and no SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  std::string content;
  for (int number = 0; number < 50'000; ++number) content += std::to_string(number);
  for (const char* entry : {"quen_io_FileWriter__appendPath", "quen_io_FileWriter__openPath"}) {
    SCOPED_TRACE(entry);
    expectSame([&](Story& story) {
      ASSERT_EQ(mkfifo((story / "pipe").c_str(), 0600), 0);
      const int pipe = open((story / "pipe").c_str(), O_RDWR | O_CLOEXEC);
      std::string received;
      std::thread reader([&, writer = pthread_self()] {
        while (received.size() < content.size()) {
          std::array<char, 9'000> chunk{};
          const ssize_t count = read(pipe, chunk.data(), chunk.size());
          if (count <= 0) break;
          received.append(chunk.data(), static_cast<std::size_t>(count));
          const int handled = gInterruptions;
          pthread_kill(writer, SIGUSR1);
          while (gInterruptions == handled) std::this_thread::yield();
        }
      });
      if (std::string_view(entry).ends_with("openPath")) {
        const std::int64_t handle = story.open("pipe", true);
        story.call("quen_io_FileWriter__writeHandle", {number(handle), text(content)});
        story.call("quen_io_FileWriter__closeHandle", {number(handle)});
      } else {
        story.call(entry, {text("pipe"), text(content)});
      }
      reader.join();
      close(pipe);
      EXPECT_TRUE(received == content);
    });
  }
  sigaction(SIGUSR1, &before, nullptr);
}

// Small stacks.

TEST(OddProcesses, SmallStacks) {
  if (tests::kSanitized) GTEST_SKIP() << "sanitizers need larger stacks";
  expectSame([](Story& story) {
    makeFiles(story);
    std::ofstream(story / "large") << std::string(300'000, 'l');
    story.inChild([&](Story& child) {
      constexpr std::size_t kRoom = std::size_t{16} * 1024;
      pthread_attr_t attributes;
      pthread_attr_init(&attributes);
      pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(PTHREAD_STACK_MIN) + kRoom);
      const auto body = [](void* passed) -> void* {
        auto& told = *static_cast<Story*>(passed);
        told.call("quen_io_FileReader__readAllTextPath", {text("large")});
        const std::int64_t handle = told.open("written");
        callEverything(told, handle);
        return nullptr;
      };
      pthread_t thread{};
      pthread_create(&thread, &attributes, body, &child);
      pthread_join(thread, nullptr);
      pthread_attr_destroy(&attributes);
    });
  });
}

// Forks and exits.

TEST(OddProcesses, AForkedChildUsesAWriterOfItsParent) {
  expectSame([](Story& story) {
    const std::int64_t handle = story.open("shared");
    story.call("quen_io_FileWriter__writeHandle", {number(handle), text("before ")});
    story.inChild([&](Story& child) {
      child.call("quen_io_FileWriter__writeHandle", {number(handle), text("child ")});
      child.call("quen_io_FileWriter__closeHandle", {number(handle)});
      std::exit(3);
    });
    story.call("quen_io_FileWriter__writeHandle", {number(handle), text("parent")});
    story.call("quen_io_FileWriter__closeHandle", {number(handle)});
    story.tellFile("shared");
  });
}

// At the fork, another thread of the parent is inside a write and holds the writer's lock.
TEST(OddProcesses, AChildForkedDuringAWriteExits) {
  if (tests::kSanitized) GTEST_SKIP() << "forks while another thread runs";
  expectSame([](Story& story) {
    ASSERT_EQ(mkfifo((story / "pipe").c_str(), 0600), 0);
    const int reader = open((story / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    const std::int64_t waiting = story.open("waiting");
    story.call("quen_io_FileWriter__writeHandle", {number(waiting), text("text")});
    const std::int64_t handle = story.open("pipe", true);

    const std::string large(200'000, 'x');  // larger than a pipe's capacity
    std::thread writer([&] {
      story.form().call(entryPoint("quen_io_FileWriter__writeHandle"),
                        {number(handle), text(large)});
    });
    int held = 0;
    while (ioctl(reader, FIONREAD, &held) == 0 && held < 65'536) std::this_thread::yield();
    story.inChild([](Story&) { std::exit(5); });
    story.tellFile("waiting");

    std::string received(large.size(), '\0');
    for (std::size_t count = 0; count < large.size();) {
      count += static_cast<std::size_t>(read(reader, received.data(), received.size()));
    }
    writer.join();
    story.call("quen_io_FileWriter__closeHandle", {number(handle)});
    story.call("quen_io_FileWriter__closeHandle", {number(waiting)});
    close(reader);
  });
}

struct Departure {
  const char* how;
  std::function<void()> leave;
};

// Exits inside each runtime operation, while one writer has a buffered text and another has failed.
TEST(OddProcesses, ExitFromAnyOperation) {
  const std::vector<Departure> departures = {
      {"exit", [] { std::exit(7); }},
      {"quick_exit", [] { std::quick_exit(8); }},
      {"_exit", [] { _exit(9); }},
  };
  struct Moment {
    const char* entry;
    Arguments arguments;
  };
  const std::vector<Moment> moments = {
      {"quen_io_FileReader__readAllTextPath", {text("file")}},
      {"quen_io_FileReader__readAllTextPath", {text("missing")}},
      {"quen_io_FolderPath__listNamesNative", {text("@")}},
      {"quen_io_FileWriter__writeHandle", {number(999), text("x")}},
      {"quen_io_FileWriter__openPath", {text("missing/x"), number(0)}},
      {"quen_io_FileWriter__openPath", {text("opened"), number(0)}},
      {"quen_io_FolderPath__removeAllNative", {text("file")}},
      {"quen_io_Path_rename", {path("file"), text("renamed")}},
      {"quen_data_internal_DocumentIndexStore__writeAtomic", {text("missing/x"), text("x")}},
  };
  for (const Departure& departure : departures) {
    for (const Moment& moment : moments) {
      for (int operation = 0; operation < 4; ++operation) {
        SCOPED_TRACE(std::string(departure.how) + " from operation " + std::to_string(operation) +
                     " of " + moment.entry);
        expectSame([&](Story& story) {
          makeFiles(story);
          story.inChild([&](Story& child) {
            const std::int64_t handle = child.open("waiting");
            child.call("quen_io_FileWriter__writeHandle", {number(handle), text("waiting text")});
            Circumstances leaves;
            int remaining = operation;
            leaves.interfere = [&](const std::string&) {
              if (remaining-- == 0) departure.leave();
            };
            child.call(moment.entry, moment.arguments, leaves);
          });
          story.tellFile("waiting");
        });
      }
    }
  }
}

// The runtime exits while the failed flush holds the writer's lock.
TEST(OddProcesses, ExitWhileAFailedFlushIsRaised) {
  for (const char* entry : {"quen_io_FileWriter__flushHandle", "quen_io_FileWriter__closeHandle"}) {
    SCOPED_TRACE(entry);
    expectSame([&](Story& story) {
      story.inChild([&](Story& child) {
        const std::int64_t waiting = child.open("waiting");
        child.call("quen_io_FileWriter__writeHandle", {number(waiting), text("waiting text")});
        const std::int64_t full = child.open("/dev/full");
        child.call("quen_io_FileWriter__writeHandle", {number(full), text("text")});
        Circumstances leaves;
        leaves.interfere = [](const std::string& operation) {
          if (operation == "Quen_raise") std::exit(7);
        };
        child.call(entry, {number(full)}, leaves);
      });
      story.tellFile("waiting");
    });
  }
}

}  // namespace
}  // namespace quen::differential
