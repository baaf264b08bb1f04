#include "driver/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "driver/arguments.h"
#include "driver/suggestions.h"
#include "driver/text.h"
#include "driver/values.h"

namespace quen::driver {

namespace {

const std::string kSeeHelp = "see --help";

// CLI11's own conversion reads 010 as octal and clamps integers that are out of range.
std::int64_t countOf(const std::string& option, const std::string& digits) {
  try {
    return integerOf(digits, 0, std::numeric_limits<std::int64_t>::max());
  } catch (const UsageError& error) {
    throw UsageError(option + ": " + error.what());
  }
}

// Registers an option with CLI11, by the type of its target.
struct Binding {
  CLI::App& app;
  const Option& option;

  void operator()(Shown shown) const {
    if (shown == Shown::kHelp) app.set_help_flag(option.names, option.summary);
    if (shown == Shown::kVersion) app.set_version_flag(option.names, "quen-io " QUEN_IO_VERSION);
  }
  void operator()(bool* flag) const { app.add_flag(option.names, *flag); }
  void operator()(std::string* text) const { named(app.add_option(option.names, *text)); }
  void operator()(std::int64_t* count) const { bindCount(*count); }
  void operator()(std::optional<std::int64_t>* count) const { bindCount(*count); }
  // One value per occurrence, so "[a,b]" is a single value.
  void operator()(std::vector<std::string>* values) const {
    named(app.add_option(option.names, *values))->allow_extra_args(false);
  }

 private:
  template <typename Count>
  void bindCount(Count& count) const {
    const std::string name = namesOf(option).back();
    named(app.add_option_function<std::string>(
        option.names,
        [&count, name](const std::string& digits) { count = countOf(name, digits); }));
  }
  CLI::Option* named(CLI::Option* added) const { return added->type_name(option.value); }
};

bool isOption(std::string_view word) { return word.size() > 1 && word[0] == '-'; }

std::string unknownOption(const Command& command, const std::string& word) {
  const std::string typed = word.substr(0, word.find('='));
  std::vector<Candidate> known;
  for (const Option& option : command.options) {
    known.push_back({namesOf(option).back(), {}});
  }
  return "no option " + inQuotes(typed) + ": " + suggestionFor(typed, known, kSeeHelp);
}

// Assigns the words that are not options to the command's operands.
std::vector<std::string> operandsAmong(const Command& command,
                                       const std::vector<std::string>& words) {
  std::vector<std::string> operands;
  bool optionsEnded = false;
  for (const std::string& word : words) {
    if (!optionsEnded && word == "--") {
      optionsEnded = true;
      continue;
    }
    if (!optionsEnded && isOption(word)) throw UsageError(unknownOption(command, word));
    operands.push_back(word);
    if (command.order == OptionOrder::kBeforeOperands) optionsEnded = true;
  }
  return operands;
}

void setOperands(const Command& command, const std::vector<std::string>& words) {
  auto next = words.begin();
  for (const Operand& operand : command.operands) {
    if (next == words.end()) {
      if (operand.isRequired) throw UsageError(operand.name + " is missing (" + kSeeHelp + ")");
    } else if (takesMany(operand)) {
      std::get<std::vector<std::string>*>(operand.target)->assign(next, words.end());
      next = words.end();
    } else {
      *std::get<std::string*>(operand.target) = *next++;
    }
  }
  if (next != words.end()) {
    throw UsageError("not expected: " + inQuotes(*next) + " (" + kSeeHelp + ")");
  }
}

}  // namespace

// CLI11 parses only the options and returns all other words unchanged (allow_extras,
// prefix_command). Its positionals would split "[a,b]" in two, and a subcommand would end at "++".
bool parse(const Command& command, std::vector<std::string> words,
           const std::vector<Command>& commands) {
  CLI::App app;
  app.allow_extras();
  app.prefix_command(command.order == OptionOrder::kBeforeOperands);
  app.formatter_fn([&](const CLI::App*, const std::string&, CLI::AppFormatMode) {
    return helpOf(command, commands);
  });
  for (const Option& option : command.options) std::visit(Binding{app, option}, option.target);

  std::ranges::reverse(words);  // CLI11 parses a vector from the back
  try {
    app.parse(words);
  } catch (const CLI::Success& asked) {
    app.exit(asked);
    return false;
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + " (" + kSeeHelp + ")");
  }
  setOperands(command, operandsAmong(command, app.remaining()));
  return true;
}

const Command& findCommand(const CommandTable& table, const std::string& name) {
  const auto found = std::ranges::find(table.commands, name, &Command::name);
  if (found != table.commands.end()) return *found;

  std::vector<Candidate> names;
  for (const Command& each : table.commands) {
    if (isShown(each)) names.push_back({each.name, {}});
  }
  throw UsageError("no command " + inQuotes(name) + ": " + suggestionFor(name, names, kSeeHelp));
}

}  // namespace quen::driver
