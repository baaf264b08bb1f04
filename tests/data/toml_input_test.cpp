#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/process_state.h"
#include "tests/support/threads.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;
using namespace std::string_literals;

namespace {

std::string nulAt(std::size_t offset) {
  return "quen.io.toml.TOMLParseException: Raw U+0000 is not allowed in TOML input at byte " +
         std::to_string(offset);
}

std::string invalidAt(std::size_t offset) {
  return "quen.io.toml.TOMLParseException: TOML input is not valid UTF-8 at byte " +
         std::to_string(offset);
}

class ReadStrict : public BoundaryTest {
 protected:
  static std::string strict(const fs::path& path) {
    return text(quen_io_toml_TOML__readStrictPath(path.c_str()));
  }

  // The text read from a file with these bytes, or the raised exception.
  std::string strictOf(const std::string& bytes) const {
    const std::string read = strict(scratch.file("file.toml", bytes));
    const std::string exception = raised();
    if (exception.empty()) return read;
    EXPECT_EQ(read, "") << "after " << exception;
    return exception;
  }
};

TEST_F(ReadStrict, GivesTheWholeTextUnchanged) {
  for (const std::string text : {"", "a = 1", "\xEF\xBB\xBF# with a byte-order mark\n",
                                 "a = 'h\xC3\xA9llo'\r\n\r\n\t\x01\x7F\x1A",
                                 "a = '\xE2\x82\xAC \xF0\x9F\x98\x80'", "not = [ TOML"}) {
    EXPECT_EQ(strictOf(text), text);
  }
}

TEST_F(ReadStrict, GivesALongTextWhole) {
  std::string text;
  while (text.size() < 200'000) text += "price = '\xE2\x82\xAC 5'\n";

  EXPECT_EQ(strictOf(text), text);
}

TEST_F(ReadStrict, TakesAnEscapedNulForOrdinaryText) {
  EXPECT_EQ(strictOf("a = \"\\u0000\\0\""), "a = \"\\u0000\\0\"");
}

TEST_F(ReadStrict, RefusesARawNulWhereItFirstStands) {
  EXPECT_EQ(strictOf("\0"s), nulAt(0));
  EXPECT_EQ(strictOf("\0a = 1"s), nulAt(0));
  EXPECT_EQ(strictOf("a = \0"s), nulAt(4));
  EXPECT_EQ(strictOf("a = \0\0 # \0"s), nulAt(4));
  EXPECT_EQ(strictOf("\xEF\xBB\xBF\0"s), nulAt(3)) << "bytes are counted, not characters";
  EXPECT_EQ(strictOf(std::string(100'000, '#') + '\0'), nulAt(100'000));
}

TEST_F(ReadStrict, RefusesInvalidUtf8WhereTheValidatorFindsIt) {
  EXPECT_EQ(strictOf("\x80"), invalidAt(0));
  EXPECT_EQ(strictOf("abc\x80"), invalidAt(3));
  EXPECT_EQ(strictOf("a\xC3"), invalidAt(1)) << "a tail that is cut off";
  EXPECT_EQ(strictOf("\xC0\xAF"), invalidAt(0));
  EXPECT_EQ(strictOf("\xE2"
                     "AB"),
            invalidAt(1))
      << "at the byte that does not continue";
  EXPECT_EQ(strictOf("\xE0\x80\x80"), invalidAt(0)) << "overlong";
  EXPECT_EQ(strictOf("\xED\xA0\x80"), invalidAt(0)) << "a surrogate";
  EXPECT_EQ(strictOf("\xF4\x90\x80\x80"), invalidAt(0)) << "beyond U+10FFFF";
  EXPECT_EQ(strictOf("a\xFF\xFE"), invalidAt(1)) << "the first of two";
  EXPECT_EQ(strictOf(std::string(100'000, '#') + "\xFF"), invalidAt(100'000));
}

TEST_F(ReadStrict, ReportsANulAnywhereBeforeAnInvalidSequenceAnywhere) {
  EXPECT_EQ(strictOf("ab\xFF"
                     "cdefghi\0"s),
            nulAt(10));
  EXPECT_EQ(strictOf("\xFF\0"s), nulAt(1));
  EXPECT_EQ(strictOf("\0\xFF"s), nulAt(0));
  EXPECT_EQ(strictOf("\xC3\0"s), nulAt(1)) << "where a continuation byte is missing";
  EXPECT_EQ(strictOf("\xFF" + std::string(100'000, '#') + '\0'), nulAt(100'001));
}

TEST_F(ReadStrict, WritesTheOffsetInPlainDigits) {
  inChild([this] {
    groupDigits();
    EXPECT_EQ(strictOf(std::string(12'345, '#') + '\0'),
              "quen.io.toml.TOMLParseException: "
              "Raw U+0000 is not allowed in TOML input at byte 12345");
    EXPECT_EQ(strictOf(std::string(12'345, '#') + "\xFF"),
              "quen.io.toml.TOMLParseException: TOML input is not valid UTF-8 at byte 12345");
  });
}

TEST_F(ReadStrict, RefusesAnEmptyPath) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(text(quen_io_toml_TOML__readStrictPath(path)), "");
    EXPECT_EQ(raised(), "IOException: File path is empty");
  }
}

TEST_F(ReadStrict, FailsWhereNothingCanBeOpened) {
  const fs::path file = scratch.file("file");

  for (const fs::path& path :
       {scratch / "missing", file / "below", scratch.link("dangling", "missing"),
        scratch.link("loop", "loop"), scratch / std::string(300, 'n')}) {
    EXPECT_EQ(strict(path), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file") << path;
  }
  EXPECT_EQ(namesIn(scratch.path()), "dangling file loop") << "nothing was made";
}

TEST_F(ReadStrict, FailsWithoutPermission) {
  const fs::path secret = scratch.file("secret", "\0"s);
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(secret, fs::perms::none);

  inUnprivilegedChild([&secret] {
    EXPECT_EQ(strict(secret), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file");
  });
}

// A folder can be opened, and the error of copying from it is not checked.
TEST_F(ReadStrict, GivesAnEmptyTextForADirectory) {
  EXPECT_EQ(strict(scratch.folder("folder")), "");
  EXPECT_EQ(raised(), "");
}

TEST_F(ReadStrict, FollowsLinks) {
  scratch.file("file.toml", "a = 1");

  EXPECT_EQ(strict(scratch.link("link", "file.toml")), "a = 1");
}

TEST_F(ReadStrict, LeavesTheFileAsItIs) {
  const fs::path file = scratch.file("file.toml", "a\0\xFF"s);

  EXPECT_EQ(strict(file), "");

  EXPECT_EQ(raised(), nulAt(1));
  EXPECT_EQ(contents(file), "a\0\xFF"s);
  EXPECT_EQ(namesIn(scratch.path()), "file.toml");
}

TEST_F(ReadStrict, ClosesTheFileOnEveryWay) {
  const auto before = openFiles();

  for (const std::string& bytes : {"a = 1"s, "\0"s, "\xFF"s}) strictOf(bytes);
  strict(scratch.path());

  EXPECT_EQ(openFiles(), before);
}

// The other whole-file readers check for a pending exception and return an empty text.
TEST_F(ReadStrict, DoesNotAskForAPendingException) {
  const fs::path file = scratch.file("file.toml", "a = 1");
  Quen_raise("IOException", "from before");

  EXPECT_EQ(strict(file), "a = 1");
  EXPECT_EQ(text(quen_io_FileReader__readAllTextPath(file.c_str())), "");

  EXPECT_EQ(raised(), "IOException: from before");
}

TEST_F(ReadStrict, RunsOnManyThreadsAtOnce) {
  const fs::path valid = scratch.file("valid", "a = 1");
  const fs::path invalid = scratch.file("invalid", "ab\xFF");

  together(4, [&](int) {
    for (int i = 0; i < 100; ++i) {
      const Scope objectsOfThisThread;
      EXPECT_EQ(strict(valid), "a = 1");
      EXPECT_EQ(strict(invalid), "");
      EXPECT_EQ(raised(), invalidAt(2));
    }
  });
}

}  // namespace
