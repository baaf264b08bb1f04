// quen-io call: one entry point, its result or what it raised.

#include "driver/call.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "driver/commands.h"
#include "driver/results.h"
#include "driver/terminal.h"
#include "driver/text.h"
#include "runtime/recording/recording.h"

namespace quen::driver {

const char* const kCallHelp =
    "A result is one line, a list one line for each element. An exception is one line on standard\n"
    "error, and the exit status is 1. With --trace, what the entry point asks of the runtime\n"
    "comes first, on standard error, in order, with arguments and answers. A text that looks like\n"
    "an option of this command comes as text:--json, or behind a --.";

namespace {

// By the name that the header gives such a parameter.
bool isFilled(const Parameter& parameter) { return parameter.name == "destination"; }

Json toJson(const EntryPoint& entry, const Outcome& outcome) {
  Json json;
  json["entry"] = entry.fullName;
  json["result"] = toJson(outcome.result);
  json["raised"] = nullptr;
  if (outcome.raised) {
    json["raised"] = Json::object();
    json["raised"]["class"] = outcome.raised->className;
    putText(json["raised"], "message", outcome.raised->message);
  }
  json["filled"] = Json::object();
  for (const Filled& each : outcome.filled) {
    json["filled"][std::string(each.parameter)] = toJson(each.bytes);
  }
  return json;
}

// The name of an operation, and paler what it was asked and what it answered.
void printTraced(const std::string& call) {
  const std::size_t end = std::min(call.find('('), call.size());
  std::cerr << call.substr(0, end) << styled(std::cerr, Style::kDim, call.substr(end)) << '\n';
}

void print(const Outcome& outcome) {
  if (outcome.raised) {
    report(*outcome.raised);
    return;
  }
  if (isList(outcome.result)) {
    for (const std::string& line : describeElements(outcome.result)) std::cout << line << '\n';
  } else {
    std::cout << describe(outcome.result) << '\n';
  }
  for (const Filled& each : outcome.filled) {
    std::cout << each.parameter << " = " << describe(each.bytes) << '\n';
  }
}

}  // namespace

Outcome callEntryPoint(const EntryPoint& entry, const std::vector<std::string>& words,
                       const Results& results) {
  const std::vector<Parameter>& parameters = entry.parameters;
  if (words.size() != parameters.size()) {
    throw UsageError(std::string(entry.shortName) + " takes " + std::to_string(parameters.size()) +
                     (parameters.size() == 1 ? " argument, not " : " arguments, not ") +
                     std::to_string(words.size()) + ": " + std::string(entry.signature));
  }
  std::vector<Argument> arguments;
  for (const std::string& word : words) {
    arguments.push_back(argumentOf(parameters[arguments.size()], word, results));
  }

  Outcome outcome;
  try {
    outcome.result = entry.function(arguments);
    outcome.raised = small::takeException();
  } catch (const std::exception& error) {  // a length too large to allocate
    small::takeException();
    outcome.raised = small::Exception{"C++ exception", error.what()};
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const auto* object = std::get_if<void*>(&arguments[i]);
    if (isFilled(parameters[i]) && object != nullptr && small::className(*object) == "Byte[]") {
      outcome.filled.push_back({parameters[i].name, *object});
    }
  }
  return outcome;
}

std::string describe(const small::Exception& raised) {
  return escaped(raised.className) + ": " + escaped(raised.message);
}

void report(const small::Exception& raised) {
  std::cerr << styled(std::cerr, Style::kFailure, escaped(raised.className)) << ": "
            << escaped(raised.message) << '\n';
}

int runCall(const std::string& name, const std::vector<std::string>& words,
            const CallOptions& options) {
  const small::Scope scope;
  const EntryPoint& entry = findEntryPoint(name);
  Outcome outcome;
  std::vector<std::string> trace;
  {
    std::optional<recording::Recorder> recorder;
    if (options.trace) recorder.emplace();
    outcome = callEntryPoint(entry, words);
    if (recorder) trace = recorder->calls();
  }
  if (options.json) {
    Json json = toJson(entry, outcome);
    for (const std::string& call : trace) json["trace"].push_back(escaped(call));
    std::cout << toLine(json) << '\n';
  } else {
    for (const std::string& call : trace) printTraced(escaped(call));
    print(outcome);
  }
  return outcome.raised ? kRaised : kDone;
}

}  // namespace quen::driver
