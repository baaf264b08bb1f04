#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/limits.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/system_calls.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

// The size of the chunks in which a file is read.
constexpr std::size_t kChunk = 64 * 1024;

constexpr std::string_view kHello = "h\xC3\xA9llo";

class ReadAllText : public BoundaryTest {
 protected:
  static std::string read(const fs::path& path) {
    return text(quen_io_FileReader__readAllTextPath(path.c_str()));
  }
};

class ReadTextFromOffset : public BoundaryTest {
 protected:
  static std::string read(const fs::path& path, std::int64_t offset) {
    return text(quen_io_FileInputStream__readTextFromOffsetPath(path.c_str(), offset));
  }
};

TEST_F(ReadAllText, GivesEveryByteOfAValidFile) {
  for (const std::string& content :
       {std::string(), std::string("plain"), std::string(kHello), std::string("\xEF\xBB\xBFmarked"),
        std::string("line\r\nline\rline\n"), std::string("a\0b\0", 4), std::string("\0", 1),
        std::string(3'000'000, 'x') + "\xF0\x9F\x98\x80"}) {
    EXPECT_EQ(read(scratch.file("file", content)), content);
  }
}

TEST_F(ReadAllText, NamesTheByteOfTheFirstFault) {
  struct Fault {
    std::string content;
    std::uint64_t offset;
  };
  const std::vector<Fault> faults{
      {"abc\x80", 3},
      {"\xC0\xAF", 0},
      {"\xF5\x80\x80\x80", 0},
      {"\x41\xC3", 1},
      {"\xE2\x41", 0},
      {"\xE2\x41\x42", 1},
      {"\xE0\x80\x80", 0},
      {"\xE0\x80\x41", 2},
      {"\xED\xA0\x80", 0},
      {"\xF4\x90\x80\x80", 0},
      {std::string(kHello) + "\xFF\x80", 6},
      {std::string(1'234'567, 'x') + "\xFF", 1'234'567},
  };
  for (const Fault& fault : faults) {
    EXPECT_EQ(read(scratch.file("file", fault.content)), "");
    EXPECT_EQ(raised(),
              "IOException: File is not valid UTF-8 at byte " + std::to_string(fault.offset));
  }
  EXPECT_EQ(read(scratch.file("file", "\xF4\x8F\xBF\xBF\xEF\xBF\xBF")),
            "\xF4\x8F\xBF\xBF\xEF\xBF\xBF");
}

// Characters, faults and the end of file on both sides of chunk boundaries.
TEST_F(ReadAllText, JoinsChunksIntoOneText) {
  for (const std::size_t border : {kChunk, 2 * kChunk, 3 * kChunk}) {
    for (std::size_t before = border - 4; before <= border + 1; ++before) {
      const std::string start(before, 'x');
      for (const std::string character : {"y", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        EXPECT_EQ(read(scratch.file("file", start + character)), start + character);
        EXPECT_EQ(read(scratch.file("file", start + character + "z")), start + character + "z");
      }
      const std::string at = "IOException: File is not valid UTF-8 at byte ";
      EXPECT_EQ(read(scratch.file("file", start + "\x80z")), "");
      EXPECT_EQ(raised(), at + std::to_string(before));
      EXPECT_EQ(read(scratch.file("file", start + "\xE2\x82z")), "");
      EXPECT_EQ(raised(), at + std::to_string(before + 2));
      EXPECT_EQ(read(scratch.file("file", start + "\xE2\x82")), "");
      EXPECT_EQ(raised(), at + std::to_string(before));
    }
  }
}

// A pipe has no size, and its reads are short.
TEST_F(ReadAllText, ReadsAPipeToItsEnd) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string content = std::string(300'000, 'x') + "\xF0\x9F\x98\x80";
  std::jthread writer([&] {
    std::ofstream out(pipe, std::ios::binary);
    out.write(content.data(), 3).flush();
    out.write(content.data() + 3, 99'998).flush();
    out.write(content.data() + 100'001, std::ssize(content) - 100'001);
  });

  EXPECT_EQ(read(pipe), content);
}

// The file size is queried after the first full chunk, and a pipe reports 0.
TEST_F(ReadAllText, ReadsAFullPipeToItsEnd) {
  const fs::path pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int fd = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(fcntl(fd, F_GETPIPE_SZ), static_cast<int>(kChunk));
  const std::string content = std::string(300'000, 'x') + "\xF0\x9F\x98\x80";
  ASSERT_EQ(::write(fd, content.data(), kChunk), std::int64_t{kChunk});
  std::jthread writer([&] {
    std::ofstream(pipe, std::ios::binary) << content.substr(kChunk);
    close(fd);
  });

  EXPECT_EQ(read(pipe), content);
}

TEST_F(ReadAllText, RaisesForAnEmptyPath) {
  for (const char* empty : {"", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(text(quen_io_FileReader__readAllTextPath(empty)), "");
    EXPECT_EQ(raised(), "IOException: File path is empty");
  }
}

TEST_F(ReadAllText, RaisesForWhatCannotBeOpened) {
  for (const fs::path& path :
       {scratch / "missing", scratch.file("file") / "below", scratch.link("dangling", "nowhere"),
        scratch.link("loop", scratch / "loop"), scratch / std::string(256, 'n'),
        fs::path(std::string(5000, 'p'))}) {
    EXPECT_EQ(read(path), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file");
  }
}

TEST_F(ReadAllText, RaisesForAFileThatMayNotBeRead) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path file = scratch.file("file", "secret");
  fs::permissions(file, fs::perms::none);

  inUnprivilegedChild([&] {
    EXPECT_EQ(read(file), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file");
  });
}

// A failing read ends the text like the end of file; only the prefix and byte readers report it.
TEST_F(ReadAllText, OfADirectoryIsEmptyAndRaisesNothing) { EXPECT_EQ(read(scratch.path()), ""); }

// Address 0 is not mapped, so the first read fails with EIO.
TEST_F(ReadAllText, OfAnUnreadableFileIsEmptyAndRaisesNothing) {
  EXPECT_EQ(read("/proc/self/mem"), "");
  EXPECT_EQ(raised(), "");
}

TEST_F(ReadAllText, ThatFailsMidwayReturnsTheTextBeforeTheFailure) {
  const std::string content(300'000, 'x');
  const fs::path file = scratch.file("file", content);
  for (const std::size_t delivered :
       {std::size_t{0}, std::size_t{1}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk,
        2 * kChunk + 9000, content.size() - 1}) {
    const FailingRead failing(delivered);
    EXPECT_EQ(read(file).size(), delivered);
    EXPECT_EQ(raised(), "");
  }
}

// A stream asks for 8,191 bytes, which a file of records of 8 bytes refuses.
TEST_F(ReadAllText, OfAFileOfRecordsIsWhatAStreamGives) {
  if (!fs::exists("/proc/self/pagemap")) GTEST_SKIP() << "this kernel has no such file";

  EXPECT_EQ(read("/proc/self/pagemap"), "");
  EXPECT_EQ(raised(), "");
}

// A file of the most bytes that a file system allows. Its size is only claimed: memory grows with
// what is read, until there is no more.
TEST_F(ReadAllText, OfAnEndlessSparseFileTakesMemoryUntilThereIsNoMore) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer ends the process instead";
  const fs::path file = scratch.file("sparse");
  int bits = 63;
  while (bits > 34 &&
         truncate(file.c_str(), static_cast<off_t>((std::uint64_t{1} << bits) - 1)) != 0) {
    --bits;
  }
  if (bits == 34) GTEST_SKIP() << "this file system has no large sparse files";

  inChild([&] {
    limitMemory(std::size_t{1} << 29);
    EXPECT_THROW(read(file), std::bad_alloc);
  });
}

TEST_F(ReadAllText, OfAFileWhoseSizeIsUnknownIsComplete) {
  const std::string content = std::string(300'000, 'x') + "end";
  const fs::path file = scratch.file("file", content);
  const FailingCall failing(SystemCall::kFileStatus, EIO);
  EXPECT_TRUE(read(file) == content);
}

// The size is asked for after the first read; the file changes before the second or the third.
TEST_F(ReadAllText, OfAFileThatShrinksOrGrowsMeanwhileIsWhatIsThere) {
  for (const std::size_t size : {std::size_t{100}, std::size_t{8'191}, std::size_t{20'000},
                                 std::size_t{300'000}, std::size_t{3'000'000}}) {
    const fs::path file = scratch.file("file", std::string(100'000, 'x'));
    for (const int nth : {2, 3}) {
      const BeforeCall reading(
          SystemCall::kRead, [&] { fs::resize_file(file, size); }, nth);
      const std::string text = read(file);
      EXPECT_GE(text.size(), std::min<std::size_t>(size, 8'191));
      EXPECT_LE(text.size(), std::max<std::size_t>(size, 100'000));
      fs::resize_file(file, 100'000);
    }
  }
}

TEST_F(ReadAllText, GoesOnAfterASignal) {
  const fs::path file = scratch.file("file", "text");
  const FailingCall interrupted(SystemCall::kRead, EINTR);
  EXPECT_EQ(read(file), "text");
}

TEST_F(ReadAllText, ClosesTheFileOnExec) {
  const fs::path file = scratch.file("file", "text");
  const BeforeCall reading(SystemCall::kRead, [&] { EXPECT_EQ(descriptorsKeptOnExec(file), 0); });
  EXPECT_EQ(read(file), "text");
}

// Every size around what is asked for at once, and around the spare room behind it.
TEST_F(ReadAllText, GivesFilesOfEverySizeAroundARequest) {
  for (const std::size_t border : {std::size_t{8'191}, std::size_t{8'191} + 65'536}) {
    for (std::size_t size = border - 40; size <= border + 80; ++size) {
      const std::string content(size, 'x');
      ASSERT_TRUE(read(scratch.file("file", content)) == content) << size;
    }
  }
}

TEST_F(ReadAllText, OfAFileWithoutASizeIsComplete) {
  EXPECT_EQ(read("/proc/self/comm"), contents("/proc/self/comm"));
  EXPECT_EQ(read("/dev/null"), "");
}

TEST_F(ReadAllText, ReadsThroughLinksAndNamesOfAnyBytes) {
  const fs::path file = scratch.file("\xFF\n\x1B", kHello);

  EXPECT_EQ(read(file), kHello);
  EXPECT_EQ(read(scratch.link("link", file)), kHello);
}

TEST_F(ReadAllText, IsEmptyWhileAnOlderExceptionIsPending) {
  const fs::path file = scratch.file("file", "text");
  Quen_raise("IOException", "older");

  EXPECT_EQ(read(file), "");
  EXPECT_EQ(text(quen_io_FileInputStream__readTextFromOffsetPath(file.c_str(), 0)), "");
  EXPECT_EQ(raised(), "IOException: older");
}

TEST_F(ReadTextFromOffset, CountsBytesAndMayCutACharacter) {
  const fs::path file = scratch.file("file", kHello);

  EXPECT_EQ(read(file, -5), kHello);
  EXPECT_EQ(read(file, INT64_MIN), kHello);
  EXPECT_EQ(read(file, 0), kHello);
  EXPECT_EQ(read(file, 1), "\xC3\xA9llo");
  EXPECT_EQ(read(file, 2), "\xA9llo");
  EXPECT_EQ(read(file, 5), "o");
  EXPECT_EQ(read(file, 6), "");
  EXPECT_EQ(read(file, 7), "");
  EXPECT_EQ(read(file, INT64_MAX), "");
}

TEST_F(ReadTextFromOffset, ChecksTheWholeFileWhateverTheOffset) {
  const fs::path file = scratch.file("file",
                                     "a\x80"
                                     "bc");

  for (const std::int64_t offset : {-1, 0, 2, 3, 100}) {
    EXPECT_EQ(read(file, offset), "");
    EXPECT_EQ(raised(), "IOException: File is not valid UTF-8 at byte 1");
  }
}

TEST_F(ReadTextFromOffset, RaisesAsTheWholeReaderDoes) {
  EXPECT_EQ(text(quen_io_FileInputStream__readTextFromOffsetPath(nullptr, 1)), "");
  EXPECT_EQ(raised(), "IOException: File path is empty");
  EXPECT_EQ(read(scratch / "missing", 3), "");
  EXPECT_EQ(raised(), "IOException: Cannot open file");
  EXPECT_EQ(read(scratch.path(), 0), "");
  EXPECT_EQ(raised(), "");
}

}  // namespace
