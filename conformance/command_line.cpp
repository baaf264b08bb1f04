// The command line of a program that runs the kit.

#include <getopt.h>

#include <cstdlib>
#include <iostream>
#include <map>

#include "conformance/expected_failures.h"
#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

constexpr const char* kHelp = R"( [OPTION]... [WORD]...
Checks whether the runtime does what the module needs, each requirement in a process of its own.
With words, checks only the requirements that contain one of them.

  --list              print the requirements with their severity: what the module needs, and what
                      only careful embedders want (advised)
  --format FORMAT     text, json or junit; text if not given
  --expected FILE     requirements that are expected not to be met: lines REQUIREMENT | REASON, and
                      comments that begin with #
  --strict            count advised requirements that are not met as failures
  --patience SECONDS  how long a requirement may take, for instance 0.5; 10 if neither this nor
                      the adapter says otherwise
  --one-process       check all requirements in this process, for a debugger
  --help              print this text

Exit status: 0 if all requirements are met, skipped or expected not to be met; 1 if one is not met,
or is met although it is expected not to be; 2 after a usage error.
)";

enum Choice { kList = 1, kFormat, kExpected, kStrict, kPatience, kOneProcess, kHelpWanted };

constexpr option kOptions[] = {
    {"list", no_argument, nullptr, kList},
    {"format", required_argument, nullptr, kFormat},
    {"expected", required_argument, nullptr, kExpected},
    {"strict", no_argument, nullptr, kStrict},
    {"patience", required_argument, nullptr, kPatience},
    {"one-process", no_argument, nullptr, kOneProcess},
    {"help", no_argument, nullptr, kHelpWanted},
    {nullptr, 0, nullptr, 0},
};

struct CommandLine {
  Options options;
  bool help = false;
  bool list = false;
};

Options::Format formatOf(const std::string& name) {
  const std::map<std::string, Options::Format> formats{{"text", Options::Format::kText},
                                                       {"json", Options::Format::kJson},
                                                       {"junit", Options::Format::kJUnit}};
  const auto format = formats.find(name);
  if (format == formats.end()) throw UsageError("no format: " + name);
  return format->second;
}

std::chrono::milliseconds patienceOf(const std::string& seconds) {
  constexpr double kLongest = 1e6;
  char* end = nullptr;
  const double number = std::strtod(seconds.c_str(), &end);
  if (end == seconds.c_str() || *end != '\0' || !(number > 0 && number < kLongest)) {
    throw UsageError("no number of seconds: " + seconds);
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(number * 1000));
}

void apply(int choice, const char* argument, CommandLine& line) {
  switch (choice) {
    case kList: line.list = true; break;
    case kFormat: line.options.format = formatOf(argument); break;
    case kExpected: line.options.expectedFailures = argument; break;
    case kStrict: line.options.strict = true; break;
    case kPatience: line.options.patience = patienceOf(argument); break;
    case kOneProcess: line.options.oneProcess = true; break;
    case kHelpWanted: line.help = true; break;
    default: throw UsageError("see --help");  // getopt_long has printed the reason
  }
}

// getopt_long reorders pointers of its own, not those of the caller.
CommandLine parse(int count, const char* const* arguments) {
  std::vector<std::string> copies(arguments, arguments + count);
  std::vector<char*> pointers;
  for (std::string& each : copies) pointers.push_back(each.data());
  pointers.push_back(nullptr);

  CommandLine line;
  optind = 1;
  for (;;) {
    const int choice = getopt_long(count, pointers.data(), "", kOptions, nullptr);
    if (choice == -1) break;
    apply(choice, optarg, line);
  }
  line.options.words.assign(pointers.begin() + optind, pointers.begin() + count);
  return line;
}

void printRequirements() {
  for (const Requirement& each : allRequirements()) {
    std::cout << (each.severity == Severity::kNeeded ? "needed   " : "advised  ") << each.words
              << '\n';
  }
}

}  // namespace

int runConformance(const Adapter& adapter, int count, const char* const* arguments) {
  try {
    const CommandLine line = parse(count, arguments);
    if (line.help) {
      std::cout << "Usage: " << arguments[0] << kHelp;
      return 0;
    }
    if (line.list) {
      printRequirements();
      return 0;
    }
    return runConformance(adapter, std::cout, line.options);
  } catch (const UsageError& error) {
    std::cerr << arguments[0] << ": " << error.what() << '\n';
    return 2;
  }
}

}  // namespace quen::conformance
