#include "driver/completion.h"

#include <readline/readline.h>

#include <algorithm>
#include <cstdio>  // what readline's header leaves out
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "driver/entry_table.h"
#include "driver/text.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

using Candidates = std::set<std::string>;

// readline takes plain functions, so what they go by stands here.
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

// A name that would have to be quoted is proposed within quotes only, and one that a terminal
// should not see not at all.
bool isProposed(const std::string& name) {
  const char* special = rl_completion_quote_character != 0 ? "\"'\\" : "\"'\\ ";
  return name.find_first_of(special) == std::string::npos && escaped(name) == name;
}

// The length of a form that the word begins with, as "path:".
std::size_t formLength(std::string_view word) {
  for (const std::string_view prefix : argumentPrefixes()) {
    if (word.starts_with(prefix)) return prefix.size();
  }
  return 0;
}

// The entries of the folder that the word names so far, behind the form that it may begin with.
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

// Whether the word that begins at this place is the first, or the first behind "$name =".
bool isFirstWord(std::string_view before) {
  const std::size_t last = before.find_last_not_of(" \t");
  if (last == std::string_view::npos) return true;
  return before[last] == '=' && before[before.find_first_not_of(" \t")] == '$';
}

Candidates candidatesFor(const std::string& word, std::string_view before) {
  Candidates candidates;
  if (isFirstWord(before) || before.starts_with("help ")) addEntryPoints(candidates);
  if (isFirstWord(before)) {
    candidates.insert({"help", "list", "exit"});
  } else {
    candidates.insert("null");
    addPaths(candidates, word);
  }
  candidates.insert(argumentPrefixes().begin(), argumentPrefixes().end());
  for (const auto& [name, value] : *gResults) candidates.insert(name);
  std::erase_if(candidates, [&word](const std::string& each) { return !each.starts_with(word); });
  return candidates;
}

// What a word is usually gone on with after such an end, so that no space is put there.
bool isOpenEnded(const std::string& word) { return word.find_last_of("/:@") == word.size() - 1; }

// Called with a state of 0 first, and then until there is no more.
char* nextCandidate(const char*, int state) {
  static Candidates::const_iterator next;
  if (state == 0) next = gCandidates.begin();
  return next == gCandidates.end() ? nullptr : strdup((next++)->c_str());
}

char** complete(const char* word, int start, int) {
  rl_attempted_completion_over = 1;  // or readline would go on and look at files itself
  gCandidates = candidatesFor(word, {rl_line_buffer, static_cast<std::size_t>(start)});
  if (gCandidates.size() == 1 && isOpenEnded(*gCandidates.begin())) {
    rl_completion_append_character = '\0';
    rl_completion_suppress_quote = 1;
  }
  return rl_completion_matches(word, nextCandidate);
}

}  // namespace

void enableCompletion(const Results& results) {
  gResults = &results;
  rl_attempted_completion_function = complete;
  rl_completer_word_break_characters = " \t";
  rl_completer_quote_characters = "\"'";
}

}  // namespace quen::driver
