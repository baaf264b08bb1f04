#include "driver/command_table.h"

#include "driver/arguments.h"
#include "driver/entry_table.h"

namespace quen::driver {

namespace {

const Option kHelpOption = {"-h,--help", "", "Prints this help and exits", Shown::kHelp};

HelpSection styles() {
  return {"",
          {{"On a terminal, names and failures are coloured or bold, unless the environment "
            "variable NO_COLOR is set and not empty."}}};
}

HelpSection exitStatus() {
  return {"Exit status",
          {{"",
            {{"0", "success"},
             {"1",
              "the call raised an exception; the index is published, but something could not be "
              "read; a file failed the check"},
             {"2", "usage error"},
             {"3", "the index could not be published, or its folder could not be read"}}},
           {"An interrupted index is terminated by the signal, which a shell reports as 128 plus "
            "the signal number: 130 for SIGINT."}}};
}

Command indexCommand(IndexOptions& options) {
  const HelpSection about = {
      "",
      {{"The first line of the index describes it, each further line is one entry:",
        {{"path", "relative to FOLDER; \".\" is FOLDER itself"},
         {"kind", "file, folder, link, other (a device, a pipe), missing (it cannot be accessed)"},
         {"size", "in bytes, 0 unless it is a file; absent for links and missing entries"},
         {"modified_ms", "milliseconds since 1970; absent for links and missing entries"},
         {"target", "the target of a link"},
         {"text", "of a file: utf-8, not utf-8, not read (too large or unreadable)"},
         {"fault", "why it is not UTF-8"},
         {"fault_byte", "the offset of the first fault"},
         {"error",
          "why the entry could not be read; the contents of a folder may then be incomplete"}}},
       {"Each folder is followed by its contents, sorted by the bytes of their names. Links are "
        "not followed, except FOLDER itself. If path or target is not UTF-8, invalid bytes are "
        "shown as U+FFFD, and path_hex or target_hex holds all bytes."},
       {"A file of size 0 is not opened: in /proc such files may be endless. At most the size of "
        "a file is read, and nothing of a file larger than --max-text-bytes."},
       {"PATTERN is a shell pattern (*, ?, [a-z]). With a slash it is matched against the path, "
        "otherwise against the name; matching entries are left out with their contents."},
       {"An unchanged tree gives an identical index. An index that is written into FOLDER is an "
        "entry of the next one."}}};
  return {"index",
          "Writes an index of a folder tree.",
          {{"FOLDER", true, "The folder to index", &options.folder}},
          {{"-o,--output", "FILE", "The index to write or replace; - is standard output",
            &options.output},
           {"--exclude", "PATTERN", "Leaves out matching entries; may be given several times",
            &options.excluded},
           {"--max-depth", "N", "Limits the depth; 0 is FOLDER alone", &options.maxDepth},
           {"--one-file-system", "", "Does not descend into other file systems",
            &options.oneFileSystem},
           {"--max-text-bytes", "N", "Does not read larger files", &options.maxTextBytes},
           {"-q,--quiet", "", "No progress and no summary", &options.quiet}},
          {about, exitStatus()},
          [&options] { return runIndex(options); }};
}

Command callCommand(CallOptions& options) {
  const HelpSection about = {
      "",
      {{"A result is one line, a list one line for each element. An exception is one line on "
        "standard error, and the exit status is 1. --trace first prints on standard error the "
        "runtime operations that the entry point calls, in order, with arguments and results."},
       {"--system-calls prints on standard error the system calls that the entry point made, "
        "except those that allocate memory, each with its result or its error. It runs strace, "
        "which has to be installed and permitted to trace."},
       {"Options come before ENTRY: every word after it is an argument, even if it begins with a "
        "dash."}}};
  return {
      "call",
      "Calls one entry point and prints its result.",
      {{"ENTRY", true, "The name of the entry point", &options.entry},
       {"ARG", false, "An argument for each parameter", &options.arguments}},
      {{"--json", "", "Print one JSON object instead of text", &options.json},
       {"--trace", "", "Show the runtime operations that the entry point calls", &options.trace},
       {"--system-calls", "", "Show the system calls that it makes, with results and errors",
        &options.systemCalls}},
      {about, argumentsHelp(), namesHelp(), exitStatus()},
      [&options] { return runCall(options); },
      OptionOrder::kBeforeOperands};
}

Command checkCommand(CheckOptions& options) {
  const HelpSection about = {
      "",
      {{"A file named *.toml is checked by TOML's rules for bytes (UTF-8 without a raw U+0000), "
        "any other for valid UTF-8. Each file that fails is printed on a line of its own, FILE: "
        "MESSAGE, followed by the error of the operating system if there is one."},
       {"In a folder, every file below it is checked; links in it are not followed. FILE - is "
        "standard input. Instead of FILE, a list of files can be given, as find -print0 writes it; "
        "a folder in the list fails, because its files are usually in the list as well."}}};
  return {"check",
          "Lists files that are not valid UTF-8 or TOML input.",
          {{"FILE", false, "A file or a folder to check, - for standard input", &options.files}},
          {{"-0,--null", "",
            "Check the files of a list on standard input, each name ended by a "
            "zero byte",
            &options.listOnStandardInput},
           {"--files0-from", "FILE",
            "Check the files of such a list in a file, - for standard "
            "input",
            &options.list}},
          {about, exitStatus()},
          [&options] { return runCheck(options); }};
}

Command listCommand(ListOptions& options) {
  const HelpSection about = {"",
                             {{"An entry point that ENTRY names is shown with its full "
                               "description. Any other word is a filter on names and summaries, "
                               "which ignores case. With --json, each entry point is one object "
                               "on a line of its own."}}};
  return {"list",
          "Prints every entry point and what it does.",
          {{"ENTRY", false, "Names of entry points, or words to search for", &options.words}},
          {{"--json", "", "Print JSON instead of text", &options.json}},
          {about, namesHelp()},
          [&options] { return runList(options); }};
}

Command shellCommand() {
  return {"shell",
          "Calls entry points line by line, from a terminal or a pipe.",
          {},
          {},
          {shellHelp(), argumentsHelp(), namesHelp()},
          runShell};
}

Command dumpCommand() { return {"dump-commands", "", {}, {}, {}, runDumpCommands}; }

Command programItself(Options& options) {
  return {"",
          "Calls the entry points of Quen IO.",
          {{"COMMAND", true, "One of the commands below", &options.command},
           {"WORD", false, "Its options and operands; 'quen-io COMMAND --help' explains them",
            &options.words}},
          {{"--version", "", "Prints the version and exits", Shown::kVersion}},
          {styles(), exitStatus()},
          nullptr,
          OptionOrder::kBeforeOperands};
}

// "-o, --output FILE" and what it does.
HelpRow rowOf(const Option& option) {
  std::string term;
  for (const std::string& name : namesOf(option)) term += (term.empty() ? "" : ", ") + name;
  if (!option.value.empty()) term += ' ' + option.value;
  const std::string standard = defaultOf(option);
  return {term, option.summary + (standard.empty() ? "" : " (default: " + standard + ")")};
}

// Rows of help below a title; "" if there are no rows.
std::string titled(const std::string& title, const std::vector<HelpRow>& rows) {
  return rows.empty() ? "" : '\n' + title + ":\n" + rendered(rows);
}

}  // namespace

CommandTable commandTable(Options& options) {
  CommandTable table = {
      programItself(options),
      {indexCommand(options.index), callCommand(options.call), checkCommand(options.check),
       listCommand(options.list), shellCommand(), dumpCommand()}};
  table.program.options.insert(table.program.options.begin(), kHelpOption);
  for (Command& command : table.commands) {
    command.options.insert(command.options.begin(), kHelpOption);
  }
  return table;
}

bool isShown(const Command& command) { return !command.summary.empty(); }

std::vector<std::string> namesOf(const Option& option) {
  const std::size_t comma = option.names.find(',');
  if (comma == std::string::npos) return {option.names};
  return {option.names.substr(0, comma), option.names.substr(comma + 1)};
}

std::string defaultOf(const Option& option) {
  if (const auto* text = std::get_if<std::string*>(&option.target)) return **text;
  if (const auto* number = std::get_if<std::int64_t*>(&option.target)) {
    return std::to_string(**number);
  }
  return "";
}

bool takesMany(const Operand& operand) {
  return std::holds_alternative<std::vector<std::string>*>(operand.target);
}

std::string usageOf(const Command& command) {
  std::string usage = command.name.empty() ? "quen-io" : "quen-io " + command.name;
  usage += " [OPTIONS]";
  for (const Operand& operand : command.operands) {
    const std::string name = operand.name + (takesMany(operand) ? "..." : "");
    usage += operand.isRequired ? ' ' + name : " [" + name + ']';
  }
  return usage;
}

std::string helpOf(const Command& command, const std::vector<Command>& commands) {
  std::vector<HelpRow> operands;
  for (const Operand& operand : command.operands)
    operands.push_back({operand.name, operand.summary});
  std::vector<HelpRow> options;
  for (const Option& option : command.options) options.push_back(rowOf(option));
  std::vector<HelpRow> summaries;
  for (const Command& each : commands) {
    if (isShown(each)) summaries.push_back({each.name, each.summary});
  }

  return command.summary + "\nUsage: " + usageOf(command) + '\n' + titled("Operands", operands) +
         titled("Options", options) + titled("Commands", summaries) + '\n' + rendered(command.help);
}

}  // namespace quen::driver
