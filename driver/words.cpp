#include "driver/words.h"

namespace quen::driver {

namespace {

enum class Role { kPartOfWord, kMark, kGap };  // a mark is a quote or a backslash

// Reads a line character by character.
class Reader {
 public:
  explicit Reader(char quote = '\0') : quote_(quote) {}

  bool isInQuote() const { return quote_ != '\0'; }
  bool isBehindBackslash() const { return behindBackslash_; }

  Role next(char each) {
    if (behindBackslash_) {
      behindBackslash_ = false;
      return Role::kPartOfWord;
    }
    if (each == '\\' && quote_ != '\'') {
      behindBackslash_ = true;
      return Role::kMark;
    }
    return isInQuote() ? nextInQuote(each) : nextOutside(each);
  }

 private:
  Role nextInQuote(char each) {
    if (each != quote_) return Role::kPartOfWord;
    quote_ = '\0';
    return Role::kMark;
  }

  Role nextOutside(char each) {
    if (each == ' ' || each == '\t' || each == '\r') return Role::kGap;
    if (each != '\'' && each != '"') return Role::kPartOfWord;
    quote_ = each;
    return Role::kMark;
  }

  char quote_;
  bool behindBackslash_ = false;
};

}  // namespace

// A backslash at the end of the line is literal.
std::optional<std::vector<std::string>> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  Reader reader;
  bool inWord = false;
  for (const char each : line) {
    const Role role = reader.next(each);
    if (role != Role::kGap && !inWord) words.emplace_back();
    inWord = role != Role::kGap;
    if (role == Role::kPartOfWord) words.back() += each;
  }
  if (reader.isInQuote()) return std::nullopt;
  if (reader.isBehindBackslash()) words.back() += '\\';
  return words;
}

std::string unquoted(std::string_view typed, char quote) {
  std::string word;
  Reader reader(quote);
  for (const char each : typed) {
    if (reader.next(each) == Role::kPartOfWord) word += each;
  }
  return word;
}

std::string asTyped(std::string_view word, char quote) {
  const std::string_view special = quote == '\'' ? "" : quote == '"' ? "\"\\" : "\"'\\ \t";
  std::string text;
  for (const char each : word) {
    if (special.find(each) != std::string_view::npos) text += '\\';
    text += each;
  }
  return text;
}

bool isQuoted(std::string_view line, std::size_t index) {
  Reader reader;
  for (const char each : line.substr(0, index)) reader.next(each);
  return reader.next(line[index]) != Role::kGap;
}

}  // namespace quen::driver
