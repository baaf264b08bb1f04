#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/generator.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/standard_library.h"
#include "tests/support/system_calls.h"
#include "tests/support/threads.h"
#include "tests/support/utf8_model.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;
using namespace std::string_literals;

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

std::string invalidAt(std::size_t offset) {
  return "IOException: File is not valid UTF-8 at byte " + std::to_string(offset);
}

class ReadPrefix : public BoundaryTest {
 protected:
  static std::string prefix(const fs::path& path, std::int64_t limit) {
    return text(quen_io_FileReader__readPrefixPath(path.c_str(), limit));
  }

  static bool throwsForWantOfMemory(const fs::path& path, std::int64_t limit) {
    try {
      prefix(path, limit);
    } catch (const std::bad_alloc&) {
      return true;
    } catch (const std::length_error&) {
      return true;
    }
    return false;
  }

  // The prefix read from a file with these bytes, or the raised exception.
  std::string prefixOf(const std::string& bytes, std::int64_t limit) const {
    const std::string read = prefix(scratch.file("file", bytes), limit);
    const std::string exception = raised();
    if (exception.empty()) return read;
    EXPECT_EQ(read, "") << "after " << exception;
    return exception;
  }
};

// Limits.

TEST_F(ReadPrefix, StopsAtTheLimit) {
  EXPECT_EQ(prefixOf("hello", 1), "h");
  EXPECT_EQ(prefixOf("hello", 4), "hell");
  EXPECT_EQ(prefixOf("hello", 5), "hello");
}

TEST_F(ReadPrefix, GivesAShorterFileWhole) {
  EXPECT_EQ(prefixOf("hello", 6), "hello");
  EXPECT_EQ(prefixOf("hello", 1'000'000), "hello");
  EXPECT_EQ(prefixOf("", 1), "");
  EXPECT_EQ(prefixOf("", 1'000'000), "");
}

TEST_F(ReadPrefix, CountsBytesAndLeavesACharacterOutThatTheLimitCuts) {
  const std::string hello = "h\xC3\xA9llo";

  EXPECT_EQ(prefixOf(hello, 1), "h");
  EXPECT_EQ(prefixOf(hello, 2), "h");
  EXPECT_EQ(prefixOf(hello, 3), "h\xC3\xA9");
  EXPECT_EQ(prefixOf(hello, 4), "h\xC3\xA9l");
  EXPECT_EQ(prefixOf(hello, 6), hello);
  EXPECT_EQ(prefixOf(hello, 7), hello);
}

TEST_F(ReadPrefix, GivesNothingOfAFirstCharacterThatIsCut) {
  for (const std::string character : {"\xC2\xA3", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    const auto length = static_cast<std::int64_t>(character.size());
    for (std::int64_t limit = 1; limit < length; ++limit) {
      EXPECT_EQ(prefixOf(character, limit), "") << limit;
    }
    EXPECT_EQ(prefixOf(character, length), character);
  }
}

TEST_F(ReadPrefix, CutsALongTextBetweenCharactersAtEveryLimit) {
  std::string euros;
  while (euros.size() < 30'000) euros += "\xE2\x82\xAC";
  const fs::path file = scratch.file("euros", euros);

  for (const std::size_t limit : {4095u, 4096u, 8191u, 8192u, 8193u, 16384u, 29'998u, 29'999u}) {
    EXPECT_EQ(prefix(file, static_cast<std::int64_t>(limit)), euros.substr(0, limit - limit % 3));
  }
}

TEST_F(ReadPrefix, OfALimitBelowOneIsEmptyAndOpensNothing) {
  for (const std::int64_t limit : {std::int64_t{0}, std::int64_t{-1}, kLeast}) {
    EXPECT_EQ(prefix(scratch.file("file", "hello"), limit), "");
    EXPECT_EQ(prefix(scratch.file("invalid", "\xFF"), limit), "");
    EXPECT_EQ(prefix(scratch / "missing", limit), "");
    EXPECT_EQ(prefix(scratch.path(), limit), "") << "a directory";
    EXPECT_EQ(raised(), "");
  }
}

TEST_F(ReadPrefix, NeedsNothingBehindTheLimit) {
  EXPECT_EQ(prefixOf("abc\xFF", 3), "abc");
  EXPECT_EQ(prefix("/dev/zero", 5), "\0\0\0\0\0"s) << "a file without an end";
}

TEST_F(ReadPrefix, AsksForNoSize) {
  EXPECT_EQ(prefix("/proc/version", 5), "Linux") << "the size of this file is given as 0";
  EXPECT_EQ(prefix("/dev/null", 5), "");
}

TEST_F(ReadPrefix, LetsTheExceptionOfTheStandardLibraryOutForALimitThatIsTooLarge) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer ends the process instead";
  const fs::path file = scratch.file("file", "hello");

  EXPECT_TRUE(throwsForWantOfMemory(file, std::int64_t{1} << 60));
  EXPECT_TRUE(throwsForWantOfMemory(file, kMost));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(prefix(file, 5), "hello") << "and nothing is harmed";
}

TEST_F(ReadPrefix, LooksAtTheFileBeforeItMakesRoomForTheLimit) {
  EXPECT_EQ(prefix(scratch / "missing", kMost), "");
  EXPECT_EQ(raised(), "IOException: Cannot open file");
}

// Bytes.

TEST_F(ReadPrefix, ConvertsNothing) {
  const std::string bytes = "\xEF\xBB\xBF\0a\r\nb\x1A\n\r\0"s;

  EXPECT_EQ(prefixOf(bytes, 100), bytes);
  EXPECT_EQ(prefixOf(bytes, 3), "\xEF\xBB\xBF");
}

TEST_F(ReadPrefix, DropsATailThatIsIncomplete) {
  for (const std::string tail :
       {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98", "\xF4\x8F\xBF"}) {
    SCOPED_TRACE(testing::PrintToString(tail));
    EXPECT_EQ(prefixOf("A" + tail, 100), "A");
    EXPECT_EQ(prefixOf(tail, 100), "") << "and it alone";
  }
}

// An incomplete sequence at the end is dropped by its lead byte alone, even if no byte could
// complete it.
TEST_F(ReadPrefix, DropsATailThatNoByteCouldComplete) {
  for (const std::string tail : {"\xC0", "\xC1", "\xE0\x80", "\xED\xA0", "\xF0\x80\x80", "\xF4\x90",
                                 "\xF5", "\xF5\x80", "\xF6\x80\x80", "\xF7\xBF\xBF"}) {
    SCOPED_TRACE(testing::PrintToString(tail));
    EXPECT_EQ(prefixOf("A" + tail, 100), "A");
    EXPECT_EQ(prefixOf(tail, 100), "");
  }
}

TEST_F(ReadPrefix, DropsNoTailThatIsAsLongAsItsLeadAnnounces) {
  EXPECT_EQ(prefixOf("A\xC0\x80", 3), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xC1\xBF", 3), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xE0\x80\x80", 4), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xED\xA0\x80", 4), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xF4\x90\x80\x80", 5), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xF5\x80\x80\x80", 5), invalidAt(1));
}

TEST_F(ReadPrefix, ReportsMoreContinuationBytesThanAnnounced) {
  EXPECT_EQ(prefixOf("A\xC3\xA9\xA9", 4), invalidAt(3));
  EXPECT_EQ(prefixOf("\xE2\x82\xAC\x82", 4), invalidAt(3));
  EXPECT_EQ(prefixOf("A\x80", 2), invalidAt(1));
  EXPECT_EQ(prefixOf("\xF0\x9F\x98\x80\x80\x80", 6), invalidAt(4));
  EXPECT_EQ(prefixOf("\xC3" + std::string(10'000, '\x80'), 20'000), invalidAt(2));
}

TEST_F(ReadPrefix, ReportsContinuationBytesWithoutALead) {
  EXPECT_EQ(prefixOf("\x80", 1), invalidAt(0));
  EXPECT_EQ(prefixOf("\x80"
                     "a",
                     1),
            invalidAt(0));
  EXPECT_EQ(prefixOf("\x80"
                     "a",
                     2),
            invalidAt(0));
  EXPECT_EQ(prefixOf("\x80\x80\x80", 3), invalidAt(0));
  EXPECT_EQ(prefixOf(std::string(10'000, '\xBF'), 10'000), invalidAt(0));
}

TEST_F(ReadPrefix, ReportsAByteThatAnnouncesNothing) {
  for (const std::string tail : {"\xF8", "\xF8\x80", "\xFB\x80\x80", "\xFC", "\xFE", "\xFF"}) {
    SCOPED_TRACE(testing::PrintToString(tail));
    EXPECT_EQ(prefixOf("A" + tail, 100), invalidAt(1));
  }
}

TEST_F(ReadPrefix, ReportsTheFirstFaultInFrontOfTheTail) {
  EXPECT_EQ(prefixOf("abc\x80", 4), invalidAt(3));
  EXPECT_EQ(prefixOf("\xFF"
                     "A\xC3",
                     3),
            invalidAt(0));
  EXPECT_EQ(prefixOf("A\xE2"
                     "B\xC3\xA9",
                     5),
            invalidAt(2));
  EXPECT_EQ(prefixOf("A\xE2"
                     "BC",
                     4),
            invalidAt(2));
  EXPECT_EQ(prefixOf("A\xE2"
                     "B",
                     3),
            invalidAt(1))
      << "too short is found at the lead";
  EXPECT_EQ(prefixOf("\xE0\x80\x41", 3), invalidAt(2));
}

TEST_F(ReadPrefix, DropsOneTailOnly) {
  EXPECT_EQ(prefixOf("A\xC3\xC3", 3), invalidAt(1));
  EXPECT_EQ(prefixOf("A\xE2\x82\xF0\x9F", 5), invalidAt(1));
}

TEST_F(ReadPrefix, WritesTheOffsetInPlainDigits) {
  inChild([this] {
    groupDigits();
    EXPECT_EQ(prefixOf(std::string(12'345, 'a') + "\xFF", 20'000),
              "IOException: File is not valid UTF-8 at byte 12345");
  });
}

// The whole-file reader rejects these incomplete sequences.
TEST_F(ReadPrefix, AcceptsTailsThatTheWholeFileReaderRefuses) {
  for (const std::string bytes : {"A\xC3", "A\xC0", "A\xF5\x80"}) {
    EXPECT_EQ(prefixOf(bytes, 100), "A");
    EXPECT_EQ(text(quen_io_FileReader__readAllTextPath((scratch / "file").c_str())), "");
    EXPECT_EQ(raised(), invalidAt(1));
  }
}

// Random and exhaustive input, compared with a slow reference.

bool within(const std::string& text, std::size_t index, int low, int high) {
  const int byte = static_cast<unsigned char>(text[index]);
  return low <= byte && byte <= high;
}

std::size_t lengthByLead(const std::string& text, std::size_t lead) {
  if (within(text, lead, 0xC0, 0xDF)) return 2;
  if (within(text, lead, 0xE0, 0xEF)) return 3;
  if (within(text, lead, 0xF0, 0xF7)) return 4;
  return 1;
}

std::string expectedPrefix(const std::string& bytes, std::size_t limit) {
  std::string prefix = bytes.substr(0, limit);
  for (std::size_t lead = prefix.size(); lead-- > 0;) {
    if (within(prefix, lead, 0x80, 0xBF)) continue;
    if (lead + lengthByLead(prefix, lead) > prefix.size()) prefix.resize(lead);
    break;
  }
  const std::optional<std::size_t> fault = firstFault(prefix);
  return fault ? invalidAt(*fault) : prefix;
}

// A file in memory (memfd_create), because its contents change thousands of times.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("generated", 0)) {}
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  fs::path path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  void replace(const std::string& bytes) const {
    ASSERT_EQ(ftruncate(descriptor_, 0), 0);
    ASSERT_EQ(pwrite(descriptor_, bytes.data(), bytes.size(), 0), std::ssize(bytes));
  }

 private:
  int descriptor_;
};

class ReadPrefixOfGenerated : public ReadPrefix {
 protected:
  static constexpr std::string_view kBytes =
      "\x41\x80\xBF\xC0\xC2\xC3\xDF\xE0\xE2\x82\xAC\xED\xA0\xF0\x9F\x98\x90\xF4\x8F\xF5\xF8\xFF";

  // With every limit from 1 to one beyond the length.
  void expectAsModelled(const std::string& bytes) const {
    file.replace(bytes);
    for (std::size_t limit = 1; limit <= bytes.size() + 1; ++limit) {
      const std::string read = prefix(file.path(), static_cast<std::int64_t>(limit));
      const std::string exception = raised();
      EXPECT_EQ(exception.empty() ? read : exception, expectedPrefix(bytes, limit))
          << testing::PrintToString(bytes) << " up to " << limit;
    }
  }

  MemoryFile file;
};

TEST_F(ReadPrefixOfGenerated, AgreesWithAModelOnAllShortTexts) {
  std::vector<std::string> texts = {""};
  for (std::size_t i = 0; texts[i].size() < 3 && !HasFailure(); ++i) {
    for (const char byte : kBytes) {
      texts.push_back(texts[i] + byte);
      expectAsModelled(texts.back());
    }
  }
}

// Whole characters among the random bytes, because few random texts would be valid otherwise.
TEST_F(ReadPrefixOfGenerated, AgreesWithAModelOnLongerTexts) {
  static constexpr std::array<std::string_view, 5> kCharacters = {
      "A", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"};
  Generator generator;

  for (std::size_t i = 0; i < generatedInputs(10'000) && !HasFailure(); ++i) {
    const Scope objectsOfThisText;
    std::string bytes;
    for (std::size_t characters = generator.below(6); characters > 0; --characters) {
      bytes += kCharacters[generator.below(kCharacters.size())];
    }
    if (generator.coin()) bytes += generator.text(kBytes, 4);
    if (generator.coin())
      bytes.insert(generator.below(bytes.size() + 1), generator.text(kBytes, 1));
    expectAsModelled(bytes);
  }
  EXPECT_FALSE(HasFailure()) << generator.describe();
}

// Failures.

TEST_F(ReadPrefix, RefusesAnEmptyPathWhateverTheLimit) {
  for (const std::int64_t limit :
       {kLeast, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, kMost}) {
    for (const char* path : {static_cast<const char*>(nullptr), ""}) {
      EXPECT_EQ(text(quen_io_FileReader__readPrefixPath(path, limit)), "");
      EXPECT_EQ(raised(), "IOException: File path is empty");
    }
  }
}

TEST_F(ReadPrefix, FailsWhereNothingCanBeOpened) {
  const fs::path file = scratch.file("file", "x");

  for (const fs::path& path : {scratch / "missing", scratch / "missing/file", file / "below",
                               scratch.link("dangling", "missing"), scratch.link("loop", "loop"),
                               scratch / std::string(300, 'n')}) {
    EXPECT_EQ(prefix(path, 1), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file") << path;
  }
  EXPECT_EQ(namesIn(scratch.path()), "dangling file loop") << "nothing was made";
}

TEST_F(ReadPrefix, FailsWithoutPermission) {
  const fs::path secret = scratch.file("secret", "x");
  const fs::path inside = scratch.folder("locked") / "file";
  scratch.file("locked/file", "x");
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(secret, fs::perms::none);
  fs::permissions(scratch / "locked", fs::perms::none);

  inUnprivilegedChild([&] {
    for (const fs::path& path : {secret, inside}) {
      EXPECT_EQ(prefix(path, 1), "");
      EXPECT_EQ(raised(), "IOException: Cannot open file") << path;
    }
  });
}

// The whole-file readers return an empty text for a folder.
TEST_F(ReadPrefix, FailsToReadADirectory) {
  EXPECT_EQ(prefix(scratch.folder("folder"), 1), "");
  EXPECT_EQ(raised(), "IOException: Failed to read file");
}

TEST_F(ReadPrefix, FollowsLinks) {
  scratch.file("file", "hello");

  EXPECT_EQ(prefix(scratch.link("link", "file"), 4), "hell");
}

TEST_F(ReadPrefix, LeavesTheFileAsItIs) {
  const fs::path file = scratch.file("file", "abc\xFF");

  EXPECT_EQ(prefix(file, 4), "");

  EXPECT_EQ(raised(), invalidAt(3));
  EXPECT_EQ(contents(file), "abc\xFF");
}

TEST_F(ReadPrefix, ClosesTheFileOnEveryWay) {
  const fs::path valid = scratch.file("valid", "abc");
  const fs::path invalid = scratch.file("invalid", "\xFF");
  const auto before = openFiles();

  prefix(valid, 2);
  prefix(invalid, 1);
  prefix(scratch.path(), 1);

  EXPECT_EQ(openFiles(), before);
  EXPECT_EQ(raised(), invalidAt(0)) << "the first of two";
}

TEST_F(ReadPrefix, ClosesTheFileForALimitThatIsTooLarge) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer ends the process instead";
  const fs::path file = scratch.file("file", "abc");
  const auto before = openFiles();

  EXPECT_TRUE(throwsForWantOfMemory(file, kMost));

  EXPECT_EQ(openFiles(), before);
}

// The whole-file readers check for a pending exception and return an empty text.
TEST_F(ReadPrefix, DoesNotAskForAPendingException) {
  const fs::path file = scratch.file("file", "hello");
  Quen_raise("IOException", "from before");

  EXPECT_EQ(prefix(file, 4), "hell");
  EXPECT_EQ(text(quen_io_FileReader__readAllTextPath(file.c_str())), "");

  EXPECT_EQ(raised(), "IOException: from before");
}

TEST_F(ReadPrefix, RunsOnManyThreadsAtOnce) {
  const fs::path valid = scratch.file("valid", "h\xC3\xA9llo");
  const fs::path invalid = scratch.file("invalid", "ab\xFF");

  together(4, [&](int) {
    for (int i = 0; i < 100; ++i) {
      const Scope objectsOfThisThread;
      EXPECT_EQ(prefix(valid, 2), "h");
      EXPECT_EQ(prefix(invalid, 3), "");
      EXPECT_EQ(raised(), invalidAt(2));
    }
  });
}

// As a std::string of that many bytes does.
TEST_F(ReadPrefix, OfTheLargestLimitIsABadAlloc) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer ends the process instead";
  if (k32Bits) GTEST_SKIP() << "std::string throws std::length_error for more than 31 bits";
  const fs::path file = scratch.file("file", "text");

  EXPECT_THROW(prefix(file, kMost), std::bad_alloc);
  EXPECT_THROW(prefix(file, kMost - 31), std::bad_alloc);
}

// Memory is reserved for the whole limit, and only taken for what is read.
TEST_F(ReadPrefix, OfAFewBytesUnderALargeLimitTakesLittleMemory) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer keeps memory of its own";
  const fs::path file = scratch.file("file", "text");

  inChild([&] {
    EXPECT_EQ(prefix(file, std::int64_t{1} << 30), "text");
    rusage usage{};
    EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 256 * 1024) << "in KiB";
  });
}

TEST_F(ReadPrefix, ReadsAsOneWhatIsReadInChunks) {
  const std::string content(200'000, 'x');
  const fs::path file = scratch.file("file", content);
  for (const std::int64_t limit : {65'535, 65'536, 65'537, 131'072, 199'999, 200'000, 300'000}) {
    EXPECT_TRUE(prefix(file, limit) == content.substr(0, static_cast<std::size_t>(limit))) << limit;
  }
}

TEST_F(ReadPrefix, RaisesForADefectWhateverCameBeforeIt) {
  const fs::path file = scratch.file("file", std::string(200'000, 'x'));
  for (const std::size_t delivered : {std::size_t{0}, std::size_t{3}, std::size_t{70'000}}) {
    const FailingRead defect(delivered);
    EXPECT_EQ(prefix(file, 100'000), "");
    EXPECT_EQ(raised(), "IOException: Failed to read file");
  }
}

TEST_F(ReadPrefix, ClosesTheFileOnExec) {
  const fs::path file = scratch.file("file", "text");
  const BeforeCall reading(SystemCall::kRead, [&] { EXPECT_EQ(descriptorsKeptOnExec(file), 0); });
  EXPECT_EQ(prefix(file, 2), "te");
}

}  // namespace
