// quen-io: the module's entry points for a person at a terminal. It stands in for compiled Quen
// code and reaches files as that does, through the entry points alone.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "driver/arguments.h"
#include "driver/commands.h"
#include "driver/entry_table.h"
#include "driver/text.h"
#include "driver/values.h"

namespace quen::driver {

namespace {

const std::string kGap = "\n\n";

const std::string kExitStatusHelp =
    "Exit status:\n"
    "  0    all went well\n"
    "  1    the call raised an exception; the index is published, but something could not be "
    "read;\n"
    "       a file failed the check\n"
    "  2    wrong usage\n"
    "  3    the index could not be published, or the folder not be walked\n"
    "  130  interrupted";

// The words behind the entry point's name. The "--" that ends the options counts as one of them.
std::vector<std::string> wordsOf(const CLI::App& call) {
  std::vector<std::string> words = call.remaining();
  std::erase(words, "--");
  return words;
}

int run(int argc, char** argv) {
  CLI::App app("Calls the entry points of Quen IO.", "quen-io");
  app.set_version_flag("--version", "quen-io " QUEN_IO_VERSION);
  app.require_subcommand(1);
  app.footer("'quen-io SUBCOMMAND --help' tells more about each." + kGap + kExitStatusHelp);

  CLI::App* index = app.add_subcommand("index", "Writes what is in a folder tree to an index.");
  IndexOptions options;
  index->add_option("FOLDER", options.folder, "Where to begin")->required();
  index->add_option("-o,--output", options.output, "The index to write or replace")
      ->type_name("FILE")
      ->capture_default_str();
  index->add_option("--max-text-bytes", options.maxTextBytes, "Larger files are not read")
      ->check(CLI::NonNegativeNumber)
      ->type_name("N")
      ->capture_default_str();
  index->footer(kIndexHelp + kGap + kExitStatusHelp);

  CLI::App* call = app.add_subcommand("call", "Calls one entry point and prints what it gives.");
  std::string entry;
  CallOptions callOptions;
  call->add_option("ENTRY [ARG...]", entry, "Its name, and an argument for each parameter")
      ->required();
  call->add_flag("--json", callOptions.json, "Print one JSON object instead of text");
  call->add_flag("--trace", callOptions.trace,
                 "Show the operations of the runtime that the entry point asks for");
  // An option of the command line would convert the words: split "[a,b]", drop "{}".
  call->allow_extras();
  call->footer(kCallHelp + kGap + kArgumentsHelp + kGap + kNamesHelp + kGap + kExitStatusHelp);

  CLI::App* check =
      app.add_subcommand("check", "Tells which files are not the text they should be.");
  std::vector<std::string> files;
  check->add_option("FILE", files, "What to check")->required();
  check->footer(kCheckHelp + kGap + kExitStatusHelp);

  CLI::App* list = app.add_subcommand("list", "Prints every entry point and what it does.");
  std::vector<std::string> entries;
  list->add_option("ENTRY", entries, "Only these, with all that there is to say about them");
  list->footer(kNamesHelp);

  CLI::App* shell =
      app.add_subcommand("shell", "Calls entry points line by line, from a terminal or a pipe.");
  shell->footer(kShellHelp + kGap + kArgumentsHelp + kGap + kNamesHelp);

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);  // --help or --version
  } catch (const CLI::ParseError& error) {
    throw UsageError(escaped(error.what()) + " (see --help)");
  }
  if (index->parsed()) return runIndex(options);
  if (call->parsed()) return runCall(entry, wordsOf(*call), callOptions);
  if (check->parsed()) return runCheck(files);
  if (list->parsed()) return runList(entries);
  return runShell();
}

}  // namespace

void complain(const std::string& words) { std::cerr << "quen-io: " << words << '\n'; }

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
