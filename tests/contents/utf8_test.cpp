// Compares the validator with a slow reference: result and offset, for all short byte strings and
// for valid and invalid sequences at many offsets in longer texts.

#include "contents/utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/generator.h"
#include "tests/support/sanitized.h"
#include "tests/support/utf8_model.h"

using quen::io::validateUtf8;
using namespace quen::tests;

namespace {

// Calls no GoogleTest assertion when both agree, so that millions of texts can be compared.
void compare(const std::string& text) {
  const std::optional<std::size_t> fault = firstFault(text);
  std::uint64_t errorOffset = 0xDEAD;
  const bool valid = validateUtf8(text, errorOffset);
  if (valid == !fault && errorOffset == fault.value_or(0)) return;

  std::string bytes;
  for (const char byte : text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    bytes += {' ', kDigits[value >> 4], kDigits[value & 15]};
  }
  ADD_FAILURE() << "text" << bytes << ": " << (valid ? "valid" : "not valid") << " at "
                << errorOffset << ", should be " << (fault ? "not valid" : "valid") << " at "
                << fault.value_or(0);
}

// Tries all values for the byte at this place and for those after it.
void compareAll(std::string& text, std::size_t place, const std::vector<unsigned char>& values) {
  for (const unsigned char value : values) {
    text[place] = static_cast<char>(value);
    if (place + 1 < text.size()) {
      compareAll(text, place + 1, values);
    } else {
      compare(text);
    }
    if (testing::Test::HasFailure()) return;
  }
}

std::vector<unsigned char> allBytes() {
  std::vector<unsigned char> bytes;
  for (int value = 0; value < 256; ++value) bytes.push_back(static_cast<unsigned char>(value));
  return bytes;
}

// The boundary values of the table of well-formed sequences. Instrumented code is too slow for all
// byte values.
std::vector<unsigned char> borderBytes() {
  return {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0,
          0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFE, 0xFF};
}

TEST(ValidateUtf8, FindsNoFaultInTheEmptyText) { compare(""); }

TEST(ValidateUtf8, AgreesWithTheModelOnAllTextsOfOneToThreeBytes) {
  for (std::size_t length = 1; length <= 3; ++length) {
    std::string text(length, '\0');
    compareAll(text, 0, length == 3 && kSanitized ? borderBytes() : allBytes());
  }
}

class ValidateUtf8OfFourBytes : public testing::TestWithParam<int> {};

TEST_P(ValidateUtf8OfFourBytes, AgreesWithTheModelOnAllThatBeginWithThisByte) {
  std::string text(4, static_cast<char>(GetParam()));

  compareAll(text, 1, kSanitized ? borderBytes() : allBytes());
}

INSTANTIATE_TEST_SUITE_P(Lead, ValidateUtf8OfFourBytes, testing::Range(0xE0, 0x100));

struct Filling {
  const char* name;
  std::string_view character;
};

class ValidateUtf8Within : public testing::TestWithParam<Filling> {
 protected:
  // At least this many bytes of filling, ending with a whole character.
  static std::string filling(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += GetParam().character;
    return text;
  }
};

const std::vector<std::string> kInteresting{
    "\x7F",              // valid
    "\xC2\x80",          //
    "\xDF\xBF",          //
    "\xE0\xA0\x80",      //
    "\xED\x9F\xBF",      //
    "\xEE\x80\x80",      //
    "\xEF\xBB\xBF",      //
    "\xEF\xBF\xBF",      //
    "\xF0\x90\x80\x80",  //
    "\xF4\x8F\xBF\xBF",  //
    "\xC3",              // cut short
    "\xE2\x82",          //
    "\xF0\x9F\x98",      //
    "\xE2\x41\x42",      // a continuation byte missing
    "\xE2\x82\x41",      //
    "\xF0\x9F\x41\x80",  //
    "\xF0\x9F\x98\x41",  //
    "\xC3\xC3\xA9",      //
    "\xC0\xAF",          // overlong
    "\xC1\xBF",          //
    "\xE0\x80\x80",      //
    "\xE0\x9F\xBF",      //
    "\xE0\x80\x41",      //
    "\xF0\x80\x80\x80",  //
    "\xF0\x8F\xBF\xBF",  //
    "\xED\xA0\x80",      // surrogates
    "\xED\xBF\xBF",      //
    "\xF4\x90\x80\x80",  // too large
    "\xF5\x80\x80\x80",  //
    "\xF8\x88\x80\x80",  //
    "\x80",              // stray
    "\xBF",              //
    "\xC3\xA9\xA9",      //
    "\xFE",              //
    "\xFF",              //
};

// Far enough to cross the boundary between two blocks, and for last vectors that overlap the one
// before in every way.
constexpr std::size_t kFarthest = 600;

TEST_P(ValidateUtf8Within, AgreesWithTheModelOnEachSequenceAtEachOffset) {
  for (const std::string& sequence : kInteresting) {
    for (std::size_t before = 0; before <= kFarthest; ++before) {
      compare(filling(before) + sequence + filling(70));
    }
  }
}

// Truncates the sequence after each of its bytes.
TEST_P(ValidateUtf8Within, AgreesWithTheModelOnEachSequenceCutOffByTheEnd) {
  for (const std::string& sequence : kInteresting) {
    for (std::size_t before = 0; before <= kFarthest; ++before) {
      for (std::size_t kept = 1; kept <= sequence.size(); ++kept) {
        compare(filling(before) + sequence.substr(0, kept));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Text, ValidateUtf8Within,
                         testing::Values(Filling{"Ascii", "a"}, Filling{"TwoBytes", "\xC3\xA9"},
                                         Filling{"ThreeBytes", "\xE2\x82\xAC"},
                                         Filling{"FourBytes", "\xF0\x9F\x98\x80"}),
                         [](const auto& each) { return each.param.name; });

// Texts that are long enough to be validated in blocks.

// Sequences of four boundary values, placed across two blocks, within a block and at its end.
TEST(ValidateUtf8InBlocks, AgreesWithTheModelOnAllSequencesOfBorderBytes) {
  const std::vector<unsigned char> values = borderBytes();
  for (const std::size_t size : {40U, 100U, 600U}) {
    for (const std::size_t place : {3U, 30U, 65U, 257U, 513U, 590U}) {
      if (place + 4 > size) continue;
      std::string text(size, 'a');
      for (const unsigned char first : values) {
        for (const unsigned char second : values) {
          for (const unsigned char third : values) {
            const std::size_t any = std::size_t{first} + second + third;
            const unsigned char sequence[] = {first, second, third, values[any % values.size()]};
            text.replace(place, 4, reinterpret_cast<const char*>(sequence), 4);
            compare(text);
          }
        }
      }
      if (HasFailure()) return;
    }
  }
}

// Runs of well-formed sequences of all lengths, with up to two bytes changed.
TEST(ValidateUtf8InBlocks, AgreesWithTheModelOnGeneratedTexts) {
  const std::vector<std::string> characters{"a",
                                            "\x7F",
                                            "\xC2\x80",
                                            "\xDF\xBF",
                                            "\xE0\xA0\x80",
                                            "\xED\x9F\xBF",
                                            "\xEF\xBF\xBF",
                                            "\xF0\x90\x80\x80",
                                            "\xF4\x8F\xBF\xBF"};
  const std::vector<unsigned char> values = borderBytes();
  Generator generator;
  for (std::size_t i = 0; i < generatedInputs(100'000); ++i) {
    std::string text;
    const std::size_t size = generator.below(1200);
    while (text.size() < size) {
      const std::string& character = characters[generator.below(characters.size())];
      for (std::size_t run = generator.below(80); run > 0; --run) text += character;
    }
    for (std::size_t changes = generator.below(3); changes > 0 && !text.empty(); --changes) {
      text[generator.below(text.size())] =
          static_cast<char>(values[generator.below(values.size())]);
    }
    compare(text);
    if (HasFailure()) FAIL() << generator.describe();
  }
}

// A reader validates chunk by chunk: passWellFormed skips what is known to be well-formed, and the
// validation that continues there finds the same fault as one of the whole text.
TEST(PassWellFormed, StopsAtTheBeginningOfAnUncheckedSequence) {
  Generator generator;
  const std::vector<std::string> characters{"a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  for (std::size_t i = 0; i < generatedInputs(20'000); ++i) {
    std::string text;
    while (text.size() < 1500) text += characters[generator.below(characters.size())];
    if (generator.coin()) text[generator.below(text.size())] = '\xFF';
    const std::optional<std::size_t> fault = firstFault(text);

    std::size_t passed = 0;
    for (std::size_t end = 0; end < text.size();) {
      end = std::min(text.size(), end + 1 + generator.below(400));
      passed = quen::io::passWellFormed(std::string_view(text).substr(0, end), passed);
      ASSERT_LE(passed, std::min(end, fault.value_or(end))) << generator.describe();
      ASSERT_EQ(firstFault(text.substr(0, passed)), std::nullopt) << generator.describe();
    }
    std::uint64_t errorOffset = 0xDEAD;
    EXPECT_EQ(quen::io::validateUtf8(text, errorOffset, passed), !fault) << generator.describe();
    EXPECT_EQ(errorOffset, fault.value_or(0)) << generator.describe();
  }
}

// The reference itself, on known examples.
TEST(Utf8Model, KnowsWhereTheFaultIs) {
  EXPECT_EQ(firstFault("h\xC3\xA9llo"), std::nullopt);
  EXPECT_EQ(firstFault("abc\x80"), 3u);
  EXPECT_EQ(firstFault("A\xC3"), 1u);
  EXPECT_EQ(firstFault("\xE2\x41"), 0u);
  EXPECT_EQ(firstFault("\xE2\x41\x42"), 1u);
  EXPECT_EQ(firstFault("\xE0\x80\x80"), 0u);
  EXPECT_EQ(firstFault("\xE0\x80\x41"), 2u);
  EXPECT_EQ(firstFault("\xED\xA0\x80"), 0u);
}

}  // namespace
