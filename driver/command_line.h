// Parsing by CLI11, from the table of commands.
#pragma once

#include <string>
#include <vector>

#include "driver/command_table.h"

namespace quen::driver {

// Parses the words after the name of the program or a command and sets the targets of its options
// and operands. Returns false if --help or --version was printed instead. Throws UsageError if the
// words do not match. `commands` are listed in the help of the program.
bool parse(const Command& command, std::vector<std::string> words,
           const std::vector<Command>& commands = {});

// The command of this name. Throws UsageError with a suggestion if there is none.
const Command& findCommand(const CommandTable& table, const std::string& name);

}  // namespace quen::driver
