#include "driver/completion.h"

#include <readline/readline.h>

#include <algorithm>
#include <cstdio>  // not included by readline's header
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "driver/entry_table.h"
#include "driver/text.h"
#include "driver/words.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

using Candidates = std::set<std::string>;

// State of the completion functions: readline takes plain function pointers without user data.
const Results* gResults = nullptr;
Candidates gCandidates;

void addEntryPoints(Candidates& candidates) {
  for (const EntryPoint& entry : entryPoints()) {
    const std::string_view name = entry.shortName;
    candidates.emplace(name);
    candidates.emplace(name.substr(name.find('.') + 1));
    candidates.emplace(entry.fullName);
  }
}

// Whether a name can be proposed: it has to be printable, and a ' cannot be written within '...'.
bool isProposed(const std::string& name) {
  const bool isTypable =
      rl_completion_quote_character != '\'' || name.find('\'') == std::string::npos;
  return isTypable && escaped(name) == name;
}

// The length of the form prefix of the word, such as "path:".
std::size_t formLength(std::string_view word) {
  for (const std::string_view prefix : argumentPrefixes()) {
    if (word.starts_with(prefix)) return prefix.size();
  }
  return 0;
}

// The paths that complete the word, after its form prefix if it has one.
void addPaths(Candidates& candidates, const std::string& word) {
  const small::Scope scope;
  const std::size_t start = formLength(word);
  const std::size_t slash = word.rfind('/');
  const std::size_t end = slash == std::string::npos ? start : slash + 1;
  const std::string folder = end > start ? word.substr(start, end - start) : "./";
  for (const std::string& name :
       small::listStrings(quen_io_FolderPath__listNamesNative(folder.c_str()))) {
    if (!isProposed(name)) continue;
    const bool isFolder = quen_io_Path__isDirectory(small::newPath(folder + name));
    candidates.insert(word.substr(0, end) + name + (isFolder ? "/" : ""));
  }
  small::takeException();
}

// Whether the word after this text is the command: the first word, or the first after "name =".
bool isFirstWord(std::string_view before) {
  std::vector<std::string> words =
      wordsOf(before).value_or(std::vector<std::string>{"an open quote"});
  if (words.size() > 1 && words[1] == "=") words.erase(words.begin(), words.begin() + 2);
  return words.empty() || words == std::vector<std::string>{"call"};
}

Candidates candidatesFor(const std::string& word, std::string_view before) {
  Candidates candidates;
  if (isFirstWord(before) || before.starts_with("help ") || before.starts_with("list "))
    addEntryPoints(candidates);
  if (isFirstWord(before)) {
    candidates.insert({"help", "list", "results", "quit", "exit"});
  } else {
    candidates.insert("null");
    addPaths(candidates, word);
  }
  candidates.insert(argumentPrefixes().begin(), argumentPrefixes().end());
  for (const auto& [name, value] : *gResults) candidates.insert(name);
  std::erase_if(candidates, [&word](const std::string& each) { return !each.starts_with(word); });
  return candidates;
}

// After such an ending the word usually continues, so no space is appended.
bool isOpenEnded(const std::string& word) { return word.find_last_of("/:@") == word.size() - 1; }

// A readline generator: called with state 0 first, then repeatedly until it returns null.
char* nextCandidate(const char*, int state) {
  static Candidates::const_iterator next;
  if (state == 0) next = gCandidates.begin();
  return next == gCandidates.end() ? nullptr : strdup((next++)->c_str());
}

char** complete(const char* typed, int start, int) {
  rl_attempted_completion_over = 1;  // disables readline's own file name completion
  const auto quote = static_cast<char>(rl_completion_quote_character);
  const std::string word = unquoted(typed, quote);
  gCandidates.clear();
  for (const std::string& each :
       candidatesFor(word, {rl_line_buffer, static_cast<std::size_t>(start)})) {
    gCandidates.insert(asTyped(each, quote));
  }
  if (gCandidates.size() == 1 && isOpenEnded(*gCandidates.begin())) {
    rl_completion_append_character = '\0';
    rl_completion_suppress_quote = 1;
  }
  return rl_completion_matches(typed, nextCandidate);
}

// NOLINTNEXTLINE(readability-non-const-parameter): readline takes no other type of function.
int isQuotedAt(char* line, int index) {
  return isQuoted(line, static_cast<std::size_t>(index)) ? 1 : 0;
}

}  // namespace

void enableCompletion(const Results& results) {
  gResults = &results;
  rl_attempted_completion_function = complete;
  rl_completer_word_break_characters = " \t";
  rl_completer_quote_characters = "\"'";
  rl_char_is_quoted_p = isQuotedAt;
}

}  // namespace quen::driver
