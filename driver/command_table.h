// The table of commands: names, operands, options and help. Parsing, --help, the manual page and
// the shell completions are all made from it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "driver/commands.h"
#include "driver/help.h"

namespace quen::driver {

// The targets of options and operands. Before parsing, they hold the defaults.
struct Options {
  std::string command;
  std::vector<std::string> words;  // after the name of the command
  IndexOptions index;
  CallOptions call;
  CheckOptions check;
  ListOptions list;
};

// What an option shows instead of running the command.
enum class Shown { kHelp, kVersion };

struct Option {
  using Target = std::variant<Shown, bool*, std::string*, std::int64_t*,
                              std::optional<std::int64_t>*, std::vector<std::string>*>;

  std::string names;  // "-o,--output", in CLI11's syntax
  std::string value;  // the name of its value; empty for a flag
  std::string summary;
  Target target;
};

// The name, FOLDER, FILE, ENTRY or ARG, also selects what the completions propose.
struct Operand {
  // A string takes one word, a vector all remaining words.
  using Target = std::variant<std::string*, std::vector<std::string>*>;

  std::string name;
  bool isRequired;
  std::string summary;
  Target target;
};

// Whether every word after the first operand is an operand, even if it begins with a dash.
enum class OptionOrder { kAnywhere, kBeforeOperands };

struct Command {
  std::string name;
  std::string summary;  // empty: hidden, for the build only
  std::vector<Operand> operands;
  std::vector<Option> options;
  Help help;
  std::function<int()> run;
  OptionOrder order = OptionOrder::kAnywhere;
};

struct CommandTable {
  Command program;
  std::vector<Command> commands;
};

// The table. It refers to `options`, which have to outlive it.
CommandTable commandTable(Options& options);

bool isShown(const Command& command);

std::vector<std::string> namesOf(const Option& option);

// The present value of the option's target, which is shown as its default; empty if there is none.
std::string defaultOf(const Option& option);

bool takesMany(const Operand& operand);

// "quen-io index [OPTIONS] FOLDER"
std::string usageOf(const Command& command);

// The output of --help. `commands` are listed in the program's help, and empty for a command.
std::string helpOf(const Command& command, const std::vector<Command>& commands = {});

}  // namespace quen::driver
