// quen-io shell: calls line by line, with results that later lines can use.

#include <poll.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/arguments.h"
#include "driver/call.h"
#include "driver/commands.h"
#include "driver/completion.h"
#include "driver/history.h"
#include "driver/list.h"
#include "driver/results.h"
#include "driver/text.h"

namespace quen::driver {

const char* const kShellHelp =
    "A line is one of\n"
    "  [$NAME =] ENTRY ARG...   calls an entry point\n"
    "  [$NAME =] VALUE          makes or shows a value: path:a/b, bytes:16, $1\n"
    "  help [ENTRY]   list   exit\n"
    "A result gets the name it is given, or the next of $1, $2 and so on. Words are split at\n"
    "spaces; 'single' and \"double\" quotes and a backslash keep them together. A line that\n"
    "begins with # is left out. A line that fails says so on standard error, and the next one\n"
    "goes on; when lines come from a pipe or a file, the exit status is 1 in the end.\n"
    "On a terminal there is a history, kept in $XDG_STATE_HOME/quen-io/history or\n"
    "~/.local/state/quen-io/history, and the tab key completes entry points, forms of arguments,\n"
    "results and paths, those with spaces within quotes.";

namespace {

// The words of a line, or none when a quote is left open.
std::optional<std::vector<std::string>> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  bool inWord = false;
  char quote = '\0';
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char each = line[i];
    if (quote == '\0' && (each == ' ' || each == '\t' || each == '\r')) {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (each == quote) {
      quote = '\0';
    } else if (quote == '\0' && (each == '\'' || each == '"')) {
      quote = each;
    } else if (each == '\\' && quote != '\'' && i + 1 < line.size()) {
      words.back() += line[++i];
    } else {
      words.back() += each;
    }
  }
  if (quote != '\0') return std::nullopt;
  return words;
}

bool isName(std::string_view word) {
  if (word.size() < 2 || word[0] != '$') return false;
  for (const char each : word.substr(1)) {
    if (std::isalnum(static_cast<unsigned char>(each)) == 0 && each != '_') return false;
  }
  return std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

class Session {
 public:
  const Results& results() const { return results_; }

  // Does what a line says. False when it could not, or when the call raised an exception.
  bool run(const std::string& line) {
    try {
      const auto words = wordsOf(line);
      if (!words) throw UsageError("a quote is left open");
      if (words->empty() || words->front().starts_with('#')) return true;
      return runWords(*words);
    } catch (const std::exception& error) {  // wrong usage, or more than memory holds
      complain(error.what());
      return false;
    }
  }

 private:
  bool runWords(std::vector<std::string> words) {
    std::string name;
    if (words.size() > 1 && words[1] == "=") {
      if (!isName(words[0])) throw UsageError("no name for a result: " + inQuotes(words[0]));
      name = words[0];
      words.erase(words.begin(), words.begin() + 2);
      if (words.empty()) throw UsageError("nothing to call or to keep behind the =");
    }
    const std::string first = words.front();
    words.erase(words.begin());
    if (first == "help" || first == "list") return runHelp(first, words);
    if (isValue(first)) return runValue(name, first, words);
    return runCall(name, findEntryPoint(first), words);
  }

  static bool runHelp(const std::string& command, const std::vector<std::string>& names) {
    if (names.empty() && command == "list") listEntryPoints(std::cout);
    if (names.empty() && command == "help") {
      std::cout << kShellHelp << "\n\n" << kArgumentsHelp << "\n\n" << kNamesHelp << '\n';
    }
    for (const std::string& name : names) explainEntryPoint(std::cout, findEntryPoint(name));
    return true;
  }

  // A result that is only looked at keeps the name it has.
  bool runValue(const std::string& name, const std::string& word,
                const std::vector<std::string>& others) {
    if (!others.empty()) throw UsageError("more than one value: " + inQuotes(others.front()));
    const Value value = valueOf(word, results_);
    if (name.empty() && results_.contains(word)) {
      show(word, value);
    } else {
      keep(name, value);
    }
    return true;
  }

  bool runCall(const std::string& name, const EntryPoint& entry,
               const std::vector<std::string>& words) {
    const Outcome outcome = callEntryPoint(entry, words, results_);
    if (outcome.raised) {
      report(*outcome.raised);
      return false;
    }
    keep(name, outcome.result);
    for (const Filled& each : outcome.filled) show(each.parameter, each.bytes);
    return true;
  }

  void keep(const std::string& name, const Value& value) {
    if (std::holds_alternative<Nothing>(value)) {
      std::cout << describe(value) << '\n';
      return;
    }
    const std::string kept = name.empty() ? '$' + std::to_string(next_++) : name;
    results_.insert_or_assign(kept, value);
    show(kept, value);
  }

  static void show(std::string_view name, const Value& value) {
    std::cout << name << " = " << describe(value) << '\n';
    for (const std::string& line : describeElements(value)) std::cout << "  " << line << '\n';
  }

  Results results_;
  std::size_t next_ = 1;
};

bool isExit(const std::string& line) {
  const auto words = wordsOf(line);
  return words && words->size() == 1 && words->front() == "exit";
}

int runLines(Session& session) {
  bool well = true;
  for (std::string line; std::getline(std::cin, line) && !isExit(line);) {
    well = session.run(line) && well;
    std::cout.flush();
  }
  return well ? kDone : kRaised;
}

volatile std::sig_atomic_t gInterrupted = 0;

// What was blocked before a line is typed. Meanwhile an interrupt is, but for where a key is waited
// for, so that none comes unnoticed between looking at the flag and waiting.
sigset_t gUsualSignals;

// Reads a key as readline does, but an interrupt gives up the line instead of the process.
int readKey(std::FILE* input) {
  pollfd keyboard = {fileno(input), POLLIN, 0};
  while (ppoll(&keyboard, 1, nullptr, &gUsualSignals) < 0) {
    if (errno != EINTR) return EOF;
    if (gInterrupted == 0) continue;
    gInterrupted = 0;
    rl_replace_line("", 0);
    return '\n';
  }
  unsigned char key = 0;
  return read(fileno(input), &key, 1) == 1 ? key : EOF;
}

// Only while a line is typed is an interrupt more than the end of the process: a call that waits
// for a pipe can be ended by one.
std::optional<std::string> readTypedLine() {
  gInterrupted = 0;
  struct sigaction interrupt = {};
  struct sigaction usual = {};
  interrupt.sa_handler = [](int) { gInterrupted = 1; };
  sigaction(SIGINT, &interrupt, &usual);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigprocmask(SIG_BLOCK, &blocked, &gUsualSignals);

  const std::unique_ptr<char, void (*)(void*)> line(readline("quen-io> "), std::free);

  sigprocmask(SIG_SETMASK, &gUsualSignals, nullptr);
  sigaction(SIGINT, &usual, nullptr);
  if (line == nullptr) return std::nullopt;
  return line.get();
}

void remember(const std::string& line) {
  const HIST_ENTRY* last = history_get(history_base + history_length - 1);
  if (!line.empty() && (last == nullptr || line != last->line)) add_history(line.c_str());
}

int runTerminal(Session& session) {
  rl_readline_name = "quen-io";
  rl_catch_signals = 0;
  rl_getc_function = readKey;
  enableCompletion(session.results());
  loadHistory();
  for (;;) {
    const std::optional<std::string> line = readTypedLine();
    if (!line) std::cout << '\n';
    if (!line || isExit(*line)) break;
    remember(*line);
    session.run(*line);
    std::cout.flush();
  }
  saveHistory();
  return kDone;
}

}  // namespace

// Every object lives as long as the session, since any of them may be asked for again.
int runShell() {
  const small::Scope scope;
  Session session;
  const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  return terminal ? runTerminal(session) : runLines(session);
}

}  // namespace quen::driver
