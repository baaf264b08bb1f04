// quen-io: calls the module's entry points from the command line. Like compiled Quen code, it
// accesses files through the entry points only.

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>

#include "driver/command_line.h"
#include "driver/command_table.h"
#include "driver/commands.h"
#include "driver/standard_descriptors.h"
#include "driver/text.h"
#include "driver/values.h"

namespace quen::driver {

namespace {

int run(int argc, char** argv) {
  Options options;
  const CommandTable table = commandTable(options);
  if (!parse(table.program, {argv + 1, argv + argc}, table.commands)) return kDone;

  const Command& command = findCommand(table, options.command);
  return parse(command, options.words) ? command.run() : kDone;
}

}  // namespace

// The message may quote user input, of any length and with arbitrary bytes.
void complain(const std::string& words) {
  constexpr std::size_t kEnds = 1000;
  std::string line = words;
  if (line.size() > 2 * kEnds) line.replace(kEnds, line.size() - 2 * kEnds, " ... ");
  std::cerr << "quen-io: " << escaped(line) << '\n';
}

}  // namespace quen::driver

int main(int argc, char** argv) {
  using namespace quen::driver;
  if (!holdStandardDescriptors()) return kRaised;
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
