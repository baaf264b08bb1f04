// Unusual files: devices, kernel files, pipes, terminals, sockets, sparse files and a FUSE file
// system. Both forms have to behave the same on each.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/differential/odd_mount.h"
#include "tests/differential/story.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

// Prefixes and byte ranges, which terminate on endless files too.
void readParts(Story& story, const std::string& path) {
  for (const std::int64_t limit : {1, 10, 4'096, 9'000, 70'000}) {
    story.call("quen_io_FileReader__readPrefixPath", {text(path), number(limit)});
  }
  for (const std::int64_t position : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{1},
                                      std::int64_t{100}, std::int64_t{65'536}, kMost}) {
    for (const std::int64_t count : {1, 10, 9'000}) {
      story.call("quen_io_FileInputStream__readBytesPath",
                 {text(path), number(position), emptyBytes(9'000), number(count)});
    }
  }
}

void readWhole(Story& story, const std::string& path) {
  story.call("quen_io_FileReader__readAllTextPath", {text(path)});
  story.call("quen_io_toml_TOML__readStrictPath", {text(path)});
  for (const std::int64_t offset : {1, 65'536}) {
    story.call("quen_io_FileInputStream__readTextFromOffsetPath", {text(path), number(offset)});
  }
}

void ask(Story& story, const std::string& file) {
  for (const char* entry :
       {"quen_io_Path__exists", "quen_io_Path__isRegular", "quen_io_Path__isDirectory",
        "quen_io_Path__isSymlink", "quen_io_Path__size"}) {
    story.call(entry, {path(file)});
  }
  story.call("quen_io_FileInputStream__sizePath", {text(file)});
  story.call("quen_io_Path__pathKindPath", {text(file)});
  story.call("quen_io_FolderPath__listNamesNative", {text(file)});
  story.call("quen_io_FolderPath__mkdirNative", {text(file)});
  story.call("quen_io_FolderPath__mkdirsNative", {text(file + "/below")});
}

// A number of this length. Its period divides no size of a short write, so that bytes in the wrong
// place show.
std::string digits(std::size_t size) {
  constexpr std::string_view kDigits = "7123456";
  std::string all(size, '7');
  for (std::size_t i = 0; i < size; ++i) all[i] = kDigits[i % kDigits.size()];
  return all;
}

// Every one-shot writer, with small and large contents.
void writeInOneShot(Story& story, const std::string& path) {
  for (const std::size_t size : {0UL, 2UL, 1'024UL, 9'000UL}) {
    const std::string content = digits(size);
    story.call("quen_io_FileWriter__appendPath", {text(path), text(content)});
    story.call("quen_io_FileWriter__writePath", {text(path), text(content)});
    story.call("quen_io_Files__writeBytesPath", {text(path), bytes(content)});
    story.call("quen_io_Files__writeBytesWithPrefixPath", {text(path), text("7"), bytes(content)});
    story.call("quen_io_FileOutputStream__appendBytesPath", {text(path), bytes(content)});
  }
  story.call("quen_io_FileWriter__truncatePath", {text(path)});
}

// Flushes after each text, so that both forms have reported a failure by then: the module buffers
// more than the plain form.
void writeThroughHandle(Story& story, const std::string& path, bool append,
                        const std::vector<std::size_t>& sizes) {
  const std::int64_t handle = story.open(path, append);
  if (handle == 0) return;
  for (const std::size_t size : sizes) {
    story.call("quen_io_FileWriter__writeHandle", {number(handle), text(digits(size))});
    story.call("quen_io_FileWriter__flushHandle", {number(handle)});
  }
  story.call("quen_io_FileWriter__closeHandle", {number(handle)});
  story.call("quen_io_FileWriter__closeHandle", {number(handle)});
}

// Character devices.

TEST(OddFiles, Devices) {
  for (const char* device : {"/dev/zero", "/dev/null", "/dev/full"}) {
    SCOPED_TRACE(device);
    expectSame([&](Story& story) {
      ask(story, device);
      readParts(story, device);
      writeInOneShot(story, device);
      for (const bool append : {false, true}) {
        writeThroughHandle(story, device, append, {0, 2, 1'000, 9'000, 300'000});
      }
    });
  }
  expectSame([](Story& story) { readWhole(story, "/dev/null"); });
}

// Only the number of bytes is compared, not the random contents.
TEST(OddFiles, RandomDevice) {
  expectSame([](Story& story) {
    for (const std::int64_t position : {std::int64_t{0}, std::int64_t{100}, kMost}) {
      const Outcome outcome = story.form().call(
          entryPoint("quen_io_FileInputStream__readBytesPath"),
          {text("/dev/urandom"), number(position), emptyBytes(9'000), number(9'000)});
      story.tell(outcome.result + outcome.exception);
    }
  });
}

// Kernel files.

TEST(OddFiles, KernelFilesThatAreRead) {
  for (const char* file :
       {"/proc/version", "/proc/filesystems", "/proc/self/comm", "/proc/self/cmdline",
        "/proc/self/environ", "/proc/self/mem", "/proc/self/auxv", "/proc/sys/kernel/hostname",
        "/proc/sys/kernel/random/boot_id", "/proc/self/oom_score_adj", "/proc/self/limits",
        "/sys/kernel/mm/transparent_hugepage/enabled", "/proc/self/mountinfo", "/proc/devices",
        "/sys/kernel/notes", "/proc/self/attr/current", "/proc/self/missing"}) {
    SCOPED_TRACE(file);
    expectSame([&](Story& story) {
      readParts(story, file);
      readWhole(story, file);
    });
  }
}

struct KernelFile {
  const char* path;
  const char* before;
  const char* written;
};

// Each form starts from the same value, overwrites it with every writer, and leaves the same value.
TEST(OddFiles, KernelFilesThatAreWritten) {
  for (const KernelFile& each : {KernelFile{"/proc/self/comm", "before", "after"},
                                 KernelFile{"/proc/self/coredump_filter", "0x33", "0x7"},
                                 KernelFile{"/proc/self/timerslack_ns", "60000", "77000"},
                                 KernelFile{"/proc/self/oom_score_adj", "10", "77"},
                                 KernelFile{"/proc/self/oom_score_adj", "10", "no number"},
                                 KernelFile{"/proc/self/clear_refs", "1", "1"}}) {
    SCOPED_TRACE(std::string(each.path) + ' ' + each.written);
    expectSame([&](Story& story) {
      for (const char* entry : {"quen_io_FileWriter__appendPath", "quen_io_FileWriter__writePath",
                                "quen_io_FileWriter__openPath"}) {
        std::ofstream(each.path) << each.before;
        if (std::string_view(entry).ends_with("openPath")) {
          const std::int64_t handle = story.open(each.path);
          story.call("quen_io_FileWriter__writeHandle", {number(handle), text(each.written)});
          story.call("quen_io_FileWriter__flushHandle", {number(handle)});
          story.call("quen_io_FileWriter__closeHandle", {number(handle)});
        } else {
          story.call(entry, {text(each.path), text(each.written)});
        }
        story.call("quen_io_FileReader__readAllTextPath", {text(each.path)});
      }
    });
  }
}

// Pipes, terminals, sockets.

// Writes each chunk after the previous one has been read.
class Feeder {
 public:
  Feeder(const fs::path& pipe, std::vector<std::string> chunks)
      : pipe_(open(pipe.c_str(), O_RDWR | O_CLOEXEC)), thread_([this, chunks = std::move(chunks)] {
          for (const std::string& chunk : chunks) {
            if (stopped_) break;
            [[maybe_unused]] const ssize_t count = write(pipe_, chunk.data(), chunk.size());
            while (isFull() && !stopped_) std::this_thread::yield();
          }
          close(pipe_);
        }) {}
  ~Feeder() {
    stopped_ = true;
    thread_.join();
  }
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;

 private:
  bool isFull() const {
    int waiting = 0;
    return ioctl(pipe_, FIONREAD, &waiting) == 0 && waiting > 0;
  }

  int pipe_;
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

struct Reading {
  const char* entry;
  Arguments further;
};

TEST(OddFiles, PipesThatAreFedSlowly) {
  // Chunk boundaries fall inside UTF-8 sequences.
  const std::vector<std::string> chunks = {
      "a\xC3", "\xA9", "b", std::string(5'000, 'c'), "\xE2\x82", "\xAC", std::string(60'000, 'd')};
  for (const Reading& reading :
       {Reading{"quen_io_FileReader__readAllTextPath", {}},
        Reading{"quen_io_toml_TOML__readStrictPath", {}},
        Reading{"quen_io_FileInputStream__readTextFromOffsetPath", {number(4)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(2)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(3)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(5'005)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(5'006)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(100'000)}},
        Reading{"quen_io_FileInputStream__readBytesPath", {number(0), emptyBytes(10), number(10)}},
        Reading{"quen_io_FileInputStream__readBytesPath",
                {number(3), emptyBytes(10), number(10)}}}) {
    SCOPED_TRACE(reading.entry);
    expectSame([&](Story& story) {
      ASSERT_EQ(mkfifo((story / "pipe").c_str(), 0600), 0);
      const Feeder feeder(story / "pipe", chunks);
      Arguments arguments = {text("pipe")};
      arguments.insert(arguments.end(), reading.further.begin(), reading.further.end());
      story.call(reading.entry, arguments);
    });
  }
}

// The reader opens the FIFO before the first call, so that opening it for writing does not block.
TEST(OddFiles, PipesThatAreWritten) {
  expectSame([](Story& story) {
    ASSERT_EQ(mkfifo((story / "pipe").c_str(), 0600), 0);
    const int reader = open((story / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    constexpr int kRoom = 1 << 20;
    ASSERT_EQ(fcntl(reader, F_SETPIPE_SZ, kRoom), kRoom);  // so that no write blocks
    ask(story, "pipe");
    writeInOneShot(story, "pipe");
    writeThroughHandle(story, "pipe", true, {1, 2'000, 9'000});
    std::string received(kRoom, '\0');
    received.resize(static_cast<std::size_t>(read(reader, received.data(), received.size())));
    story.tell("received " + std::to_string(received.size()));
    close(reader);
    story.call("quen_io_Path_touch", {path("pipe")});
    story.call("quen_io_Path_remove", {path("pipe")});
  });
}

// Ctrl-D on an empty line makes one read return end of file; a further read would block.
TEST(OddFiles, Terminals) {
  for (const Reading& reading :
       {Reading{"quen_io_FileReader__readAllTextPath", {}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(3)}},
        Reading{"quen_io_FileReader__readPrefixPath", {number(500)}},
        Reading{"quen_io_FileInputStream__readBytesPath", {number(0), emptyBytes(5), number(5)}}}) {
    SCOPED_TRACE(reading.entry);
    expectSame([&](Story& story) {
      int master = -1;
      int slave = -1;
      std::array<char, 100> name{};
      ASSERT_EQ(openpty(&master, &slave, name.data(), nullptr, nullptr), 0);
      fs::create_symlink(name.data(), story / "terminal");
      const std::string typed = "first line\nsecond\n\x04";
      ASSERT_EQ(write(master, typed.data(), typed.size()), std::ssize(typed));

      Arguments arguments = {text("terminal")};
      arguments.insert(arguments.end(), reading.further.begin(), reading.further.end());
      story.call(reading.entry, arguments);
      ask(story, "terminal");
      close(slave);
      close(master);
      fs::remove(story / "terminal");
    });
  }
}

TEST(OddFiles, TerminalsThatAreWritten) {
  expectSame([](Story& story) {
    int master = -1;
    int slave = -1;
    std::array<char, 100> name{};
    ASSERT_EQ(openpty(&master, &slave, name.data(), nullptr, nullptr), 0);
    fs::create_symlink(name.data(), story / "terminal");
    story.call("quen_io_FileWriter__appendPath", {text("terminal"), text("appended\n")});
    writeThroughHandle(story, "terminal", false, {3, 100});
    // The kernel delivers terminal output asynchronously.
    std::string shown;
    pollfd readable{master, POLLIN, 0};
    constexpr int kMilliseconds = 10'000;
    constexpr std::size_t kExpected = sizeof "appended\r\n" - 1 + 3 + 100;
    while (shown.size() < kExpected && poll(&readable, 1, kMilliseconds) == 1) {
      std::array<char, 1'000> chunk{};
      const ssize_t count = read(master, chunk.data(), chunk.size());
      shown.append(chunk.data(), static_cast<std::size_t>(count));
    }
    story.tell("shown: " + shown);
    close(slave);
    close(master);
    fs::remove(story / "terminal");
  });
}

TEST(OddFiles, Sockets) {
  expectSame([](Story& story) {
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    fs::current_path(story.form().folder());
    std::strcpy(address.sun_path, "socket");
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server, 1), 0);
    ask(story, "socket");
    readWhole(story, "socket");
    readParts(story, "socket");
    writeInOneShot(story, "socket");
    writeThroughHandle(story, "socket", true, {1});
    story.call("quen_io_Path_touch", {path("socket")});
    story.call("quen_data_internal_DocumentIndexStore__writeAtomic", {text("socket"), text("x")});
    close(server);
  });
}

// Folders in place of files, dangling links and link loops.
TEST(OddFiles, FoldersAndLinks) {
  expectSame([](Story& story) {
    fs::create_directory(story / "folder");
    fs::create_symlink("folder", story / "to a folder");
    fs::create_symlink("nowhere", story / "dangling");
    fs::create_symlink("loop", story / "loop");
    for (const char* name : {"folder", "to a folder", "dangling", "loop", "missing/file"}) {
      ask(story, name);
      readWhole(story, name);
      readParts(story, name);
      writeInOneShot(story, name);
      writeThroughHandle(story, name, false, {1, 9'000});
      story.call("quen_data_internal_DocumentIndexStore__writeAtomic", {text(name), text("x")});
      story.call("quen_io_Path_touch", {path(name)});
      story.call("quen_io_FolderPath__removeAllNative", {text(name)});
    }
  });
}

// Sizes.

// A sparse file of the largest size that the file system allows.
TEST(OddFiles, SparseFilesOfExtremeSize) {
  expectSame([](Story& story) {
    std::ofstream(story / "hole").close();
    off_t size = kMost;
    while (truncate((story / "hole").c_str(), size) != 0) size /= 2;
    readParts(story, "hole");
    ask(story, "hole");
    constexpr off_t kStreamBuffer = 8'191;  // see AllowedDifferences.FewerSystemCalls
    for (const off_t before : {off_t{0}, kStreamBuffer, off_t{9'000}}) {
      story.call("quen_io_FileInputStream__readBytesPath",
                 {text("hole"), number(size - before), emptyBytes(100), number(100)});
    }
    if (size < kMost) {
      story.call("quen_io_FileWriter__appendPath", {text("hole"), text("end")});
    }
  });
}

TEST(OddFiles, PositionsAndCountsThatNothingHolds) {
  expectSame([](Story& story) {
    std::ofstream(story / "file") << "0123456789";
    for (const std::int64_t value : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                                     std::int64_t{10}, std::int64_t{11}, kMost - 1, kMost}) {
      story.call("quen_io_FileInputStream__readBytesPath",
                 {text("file"), number(value), emptyBytes(4), number(4)});
      story.call("quen_io_FileInputStream__readTextFromOffsetPath", {text("file"), number(value)});
      if (value > 11) continue;
      story.call("quen_io_FileInputStream__readBytesPath",
                 {text("file"), number(0), emptyBytes(4), number(value)});
      story.call("quen_io_FileReader__readPrefixPath", {text("file"), number(value)});
    }
  });
}

// The FUSE file system of odd_fs.cpp.

#ifndef QUEN_IO_ODD_FS
TEST(OddFileSystem, IsBuilt) { GTEST_SKIP() << "libfuse3-dev was not found"; }
#else

class OddFileSystem : public testing::Test {
 protected:
  void SetUp() override {
    mount_ = fs::path("/dev/shm") / ("quen-io-odd-" + std::to_string(getpid()));
    fs::create_directory(mount_);
    server_ = mountOddFs(mount_);
    if (server_ == -1) GTEST_SKIP() << "FUSE file systems cannot be mounted here";
  }

  void TearDown() override {
    fs::current_path("/");
    unmountOddFs(mount_);
    if (server_ != -1) killServer(server_);
    std::error_code ignored;
    fs::remove(mount_, ignored);
  }

  // Links the folder "odd" of the form to its folder in the mounted file system.
  void enter(const Story& story) const {
    fs::create_symlink(mount_ / story.form().name(), story / "odd");
  }
  static void leave(const Story& story) { fs::remove(story / "odd"); }

  fs::path mount_;
  pid_t server_ = -1;
};

TEST_F(OddFileSystem, IsReadAlike) {
  for (const char* name :
       {"ordinary", "short_reads", "single_bytes", "fails_at_once", "fails_soon",
        "fails_in_the_middle", "claims_nothing", "claims_less", "claims_more",
        "claims_and_has_nothing", "claims_everything", "no_seek", "interrupted_reads",
        "reads_that_would_block", "failing_open", "failing_status", "busy", "missing"}) {
    SCOPED_TRACE(name);
    expectSame([&](Story& story) {
      enter(story);
      const std::string file = std::string("odd/") + name;
      ask(story, file);
      readParts(story, file);
      readWhole(story, file);
      story.call("quen_io_Path__lastModified", {path(file)});
      leave(story);
    });
  }
}

TEST_F(OddFileSystem, IsWrittenAlike) {
  for (const char* name : {"ordinary", "short_writes", "full_after_5000", "full",
                           "interrupted_writes", "failing_writes", "failing_close", "failing_open",
                           "unknown_time", "busy", "failing_status", "new"}) {
    SCOPED_TRACE(name);
    expectSame([&](Story& story) {
      enter(story);
      const std::string file = std::string("odd/") + name;
      writeInOneShot(story, file);
      story.tellFile(file);
      for (const bool append : {false, true}) {
        writeThroughHandle(story, file, append, {4'000, 2'000, 100, 9'000});
        story.tellFile(file);
      }
      story.call("quen_data_internal_DocumentIndexStore__writeAtomic",
                 {text(file), text(std::string(9'000, 'i'))});
      story.tellFile(file);
      story.call("quen_io_Path_touch", {path(file)});
      story.call("quen_io_Path_rename", {path(file), text("renamed")});
      story.call("quen_io_Path_remove", {path(file)});
      story.call("quen_io_FolderPath__removeAllNative", {text(file)});
      leave(story);
    });
  }
}

TEST_F(OddFileSystem, BreaksOffAlikeWhenListed) {
  for (const char* folder :
       {".", "breaks_off", "breaks_off_at_once", "denied", "denied_after_dots", "denied_at_once"}) {
    SCOPED_TRACE(folder);
    expectSame([&](Story& story) {
      enter(story);
      story.call("quen_io_FolderPath__listNamesNative", {text(std::string("odd/") + folder)});
      story.call("quen_io_FolderPath__listNamesNative", {text(std::string("@/odd/") + folder)});
      leave(story);
    });
  }
}

#endif  // QUEN_IO_ODD_FS

}  // namespace
}  // namespace quen::differential
