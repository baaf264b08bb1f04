// quen-io: the module's entry points for a person at a terminal. It stands in for compiled Quen
// code and reaches files as that does, through the entry points alone.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/arguments.h"
#include "driver/commands.h"
#include "driver/entry_table.h"
#include "driver/suggestions.h"
#include "driver/text.h"
#include "driver/values.h"

namespace quen::driver {

namespace {

const std::string kGap = "\n\n";
const std::string kSeeHelp = "see --help";

const std::string kStylesHelp =
    "On a terminal, names and failures stand out by colour and weight. With NO_COLOR in the\n"
    "environment, unless it is empty, they do not.";

const std::string kExitStatusHelp =
    "Exit status:\n"
    "  0    all went well\n"
    "  1    the call raised an exception; the index is published, but something could not be "
    "read;\n"
    "       a file failed the check\n"
    "  2    wrong usage\n"
    "  3    the index could not be published, or the folder not be walked\n"
    "  130  interrupted";

bool isOption(std::string_view word) { return word.size() > 1 && word[0] == '-'; }

std::string optionName(const std::string& word) { return word.substr(0, word.find('=')); }

std::string unknownOption(const CLI::App& command, const std::string& word) {
  const std::string name = optionName(word);
  std::vector<Candidate> options;
  for (const CLI::Option* option : command.get_options({})) {
    for (const std::string& each : option->get_lnames()) options.push_back({"--" + each, {}});
  }
  return "no option " + inQuotes(name) + ": " + suggestionFor(name, options, kSeeHelp);
}

std::string unknownSubcommand(const CLI::App& app, const std::string& word) {
  std::vector<Candidate> names;
  for (const CLI::App* each : app.get_subcommands({})) names.push_back({each->get_name(), {}});
  return "no subcommand " + inQuotes(word) + ": " + suggestionFor(word, names, kSeeHelp);
}

// Throws for an option that there is not, or in place of a subcommand for any other word.
void refuseUnknown(const CLI::App& command, bool isSubcommandMissing) {
  for (const std::string& word : command.remaining()) {
    if (word == "--") return;
    if (isOption(word)) throw UsageError(unknownOption(command, word));
    if (isSubcommandMissing) throw UsageError(unknownSubcommand(command, word));
  }
}

// The operands in the line, if it is of this command; what stays in the line is its options and the
// first operand. Behind that one, a word that is no option of the command is an operand, and behind
// a "--" every word. CLI11 would refuse "-x", make two of "[a,b]" and end at "++".
std::vector<std::string> takeOperands(const CLI::App& command, std::vector<std::string>& line) {
  if (line.empty() || line[0] != command.get_name()) return {};

  std::vector<std::string> options = {line[0]};
  std::vector<std::string> operands;
  bool optionsEnded = false;
  for (const std::string& word : std::span(line).subspan(1)) {
    const bool option = !optionsEnded && isOption(word);
    if (option && word == "--") {
      optionsEnded = true;
    } else if (option && command.get_option_no_throw(optionName(word)) != nullptr) {
      options.push_back(word);
    } else if (option && operands.empty()) {
      throw UsageError(unknownOption(command, word));
    } else {
      operands.push_back(word);
    }
  }
  line = std::move(options);
  if (!operands.empty()) line.insert(line.end(), {"--", operands[0]});
  return operands;
}

// CLI11 itself would take 010 for 8 and the largest integer for one that is larger still.
std::int64_t countOf(const std::string& option, const std::string& digits) {
  try {
    return integerOf(digits, 0, std::numeric_limits<std::int64_t>::max());
  } catch (const UsageError& error) {
    throw UsageError(option + ": " + error.what());
  }
}

int run(int argc, char** argv) {
  CLI::App app("Calls the entry points of Quen IO.", "quen-io");
  app.set_version_flag("--version", "quen-io " QUEN_IO_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(32);  // the longest option and a gap
  app.footer("'quen-io SUBCOMMAND --help' tells more about each." + kGap + kStylesHelp + kGap +
             kExitStatusHelp);

  CLI::App* index = app.add_subcommand("index", "Writes what is in a folder tree to an index.");
  IndexOptions options;
  index->add_option("FOLDER", options.folder, "Where to begin")->required();
  index->add_option("-o,--output", options.output, "The index to write or replace")
      ->type_name("FILE")
      ->capture_default_str();
  const std::string kMaxTextBytes = "--max-text-bytes";
  const auto readMaxTextBytes = [&](const std::string& digits) {
    options.maxTextBytes = countOf(kMaxTextBytes, digits);
  };
  index
      ->add_option_function<std::string>(kMaxTextBytes, readMaxTextBytes,
                                         "Larger files are not read")
      ->type_name("N")
      ->default_str(std::to_string(options.maxTextBytes));
  index->footer(kIndexHelp + kGap + kExitStatusHelp);

  CLI::App* call = app.add_subcommand("call", "Calls one entry point and prints what it gives.");
  std::string entry;
  CallOptions callOptions;
  call->add_option("ENTRY [ARG...]", entry, "Its name, and an argument for each parameter")
      ->required();
  call->add_flag("--json", callOptions.json, "Print one JSON object instead of text");
  call->add_flag("--trace", callOptions.trace,
                 "Show the operations of the runtime that the entry point asks for");
  call->footer(kCallHelp + kGap + kArgumentsHelp + kGap + kNamesHelp + kGap + kExitStatusHelp);

  CLI::App* check =
      app.add_subcommand("check", "Tells which files are not the text they should be.");
  std::vector<std::string> file;
  check->add_option("FILE", file, "What to check")->required()->allow_extra_args(false);
  check->footer(kCheckHelp + kGap + kExitStatusHelp);

  CLI::App* list = app.add_subcommand("list", "Prints every entry point and what it does.");
  std::vector<std::string> entries;
  list->add_option("ENTRY", entries, "Only these, with all that there is to say about them");
  list->footer(kNamesHelp);

  CLI::App* shell =
      app.add_subcommand("shell", "Calls entry points line by line, from a terminal or a pipe.");
  shell->footer(kShellHelp + kGap + kArgumentsHelp + kGap + kNamesHelp);

  std::vector<std::string> line(argv + 1, argv + argc);
  const std::vector<std::string> words = takeOperands(*call, line);
  const std::vector<std::string> files = takeOperands(*check, line);
  std::ranges::reverse(line);
  try {
    app.parse(line);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);  // --help or --version
  } catch (const CLI::ParseError& error) {
    refuseUnknown(app, app.get_subcommands().empty());
    for (const CLI::App* command : app.get_subcommands()) refuseUnknown(*command, false);
    throw UsageError(std::string(error.what()) + " (" + kSeeHelp + ")");
  }
  if (index->parsed()) return runIndex(options);
  if (call->parsed()) return runCall(entry, {words.begin() + 1, words.end()}, callOptions);
  if (check->parsed()) return runCheck(files);
  if (list->parsed()) return runList(entries);
  return runShell();
}

}  // namespace

// The words may be about something that was typed, of any length and with any bytes.
void complain(const std::string& words) {
  constexpr std::size_t kEnds = 1000;
  std::string line = words;
  if (line.size() > 2 * kEnds) line.replace(kEnds, line.size() - 2 * kEnds, " ... ");
  std::cerr << "quen-io: " << escaped(line) << '\n';
}

}  // namespace quen::driver

int main(int argc, char** argv) {
  using namespace quen::driver;
  int status = kUsage;
  try {
    status = run(argc, argv);
  } catch (const UsageError& error) {
    complain(error.what());
  } catch (const std::exception& error) {
    complain(error.what());
    status = kRaised;
  }
  if (!std::cout.flush()) {
    complain("cannot write to standard output");
    status = std::max(status, kRaised);
  }
  return status;
}
