// quen-io shell: calls line by line, with results that later lines can use.

#include <poll.h>
#include <readline/readline.h>
#include <unistd.h>

#include <algorithm>
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
#include "driver/words.h"

namespace quen::driver {

HelpSection shellHelp() {
  return {
      "",
      {{"A line is one of",
        {{"[NAME =] [call] ENTRY ARG...", "calls an entry point"},
         {"[NAME =] VALUE", "makes or shows a value: path:a/b, bytes:16, $1"},
         {"results", "shows every result and its name"},
         {"help [ENTRY]", "shows this help, or the full description of an entry point"},
         {"list [WORD]", "lists the entry points, or those that match the word"},
         {"quit, exit", "ends the shell"}}},
       {"A result is kept under the given NAME, or under the next number; later lines use it as "
        "$NAME or $1. Words are split at spaces that are not in 'single' or \"double\" quotes or "
        "behind a backslash. A line that begins with # is a comment. Errors are printed on "
        "standard error, and the shell continues with the next line; if lines come from a pipe or "
        "a file, the exit status is then 1."},
       {"On a terminal each line is added to a history as it is typed, in "
        "$XDG_STATE_HOME/quen-io/history or ~/.local/state/quen-io/history, and the tab key "
        "completes entry points, forms of arguments, results and paths."}}};
}

namespace {

const char* const kZeroByte =
    "a line holds a zero byte, and is left out: lines are text, a zero byte is written as hex:00";

// The name of a result, "$name", from the word before the "=", which is "name" or "$name".
std::string resultName(const std::string& word) {
  const std::string name = word.starts_with('$') ? word.substr(1) : word;
  const auto isAllowed = [](unsigned char each) { return std::isalnum(each) != 0 || each == '_'; };
  if (name.empty() || !std::ranges::all_of(name, isAllowed) ||
      std::isdigit(static_cast<unsigned char>(name[0])) != 0) {
    throw UsageError("no name for a result: " + inQuotes(word));
  }
  return '$' + name;
}

class Session {
 public:
  const Results& results() const { return results_; }

  // Executes a line. Returns false if that failed or the call raised an exception.
  bool run(const std::string& line) {
    try {
      if (line.find('\0') != std::string::npos) throw UsageError(kZeroByte);
      const auto words = wordsOf(line);
      if (!words) throw UsageError("a quote is left open");
      if (words->empty() || words->front().starts_with('#')) return true;
      return runWords(*words);
    } catch (const std::exception& error) {  // UsageError or std::bad_alloc
      complain(error.what());
      return false;
    }
  }

 private:
  bool runWords(std::vector<std::string> words) {
    std::string name;
    if (words.size() > 1 && words[1] == "=") {
      name = resultName(words[0]);
      words.erase(words.begin(), words.begin() + 2);
      if (words.empty()) throw UsageError("nothing to call or to keep behind the =");
    }
    if (words.front() == "call" && words.size() > 1) words.erase(words.begin());
    const std::string first = words.front();
    words.erase(words.begin());
    if (first == "help") return runHelp(words);
    if (first == "list") return runList(words);
    if (first == "results" && words.empty()) return showResults();
    if (isValue(first)) return runValue(name, first, words);
    return runCall(name, findEntryPoint(first), words);
  }

  static bool runHelp(const std::vector<std::string>& names) {
    if (names.empty()) std::cout << rendered({shellHelp(), argumentsHelp(), namesHelp()});
    for (const std::string& name : names) explainEntryPoint(std::cout, findEntryPoint(name));
    return true;
  }

  static bool runList(const std::vector<std::string>& words) {
    if (words.empty()) listEntryPoints(std::cout);
    listEntryPoints(std::cout, words);
    return true;
  }

  bool showResults() const {
    for (const auto& [name, value] : results_) show(name, value);
    return true;
  }

  // Showing a result does not give it another name.
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
  return words && words->size() == 1 && (words->front() == "exit" || words->front() == "quit");
}

int runLines(Session& session) {
  bool well = true;
  for (std::string line; std::getline(std::cin, line) && !isExit(line);) {
    well = session.run(line) && well;
    std::cout.flush();
  }
  if (std::ferror(stdin) != 0) {  // std::cin reports a read error as end of file
    complain("cannot read standard input");
    well = false;
  }
  return well ? kDone : kRaised;
}

volatile std::sig_atomic_t gInterrupted = 0;

// The signal mask from before the line. While a line is typed, SIGINT is blocked except inside
// ppoll(2), so that none is lost between checking the flag and waiting.
sigset_t gUsualSignals;

// Reads a key for readline (rl_getc_function); SIGINT discards the line instead of terminating the
// process.
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

// SIGINT is handled only while a line is typed; during a call it terminates the process, so that a
// call that blocks on a pipe can be ended.
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

int runTerminal(Session& session) {
  rl_readline_name = "quen-io";
  rl_catch_signals = 0;
  rl_getc_function = readKey;
  enableCompletion(session.results());
  History history;
  history.load();
  for (;;) {
    const std::optional<std::string> line = readTypedLine();
    if (!line) std::cout << '\n';
    if (!line || isExit(*line)) break;
    history.add(*line);
    session.run(*line);
    std::cout.flush();
  }
  return kDone;
}

}  // namespace

// Objects live as long as the session, because later lines may refer to any result.
int runShell() {
  const small::Scope scope;
  Session session;
  const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  return terminal ? runTerminal(session) : runLines(session);
}

}  // namespace quen::driver
