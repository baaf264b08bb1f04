// quen-io call: one entry point, its result or what it raised.

#include "driver/call.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "driver/commands.h"
#include "driver/results.h"
#include "driver/system_calls.h"
#include "driver/terminal.h"
#include "driver/text.h"
#include "runtime/recording/recording.h"

namespace quen::driver {

namespace {

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

Json toJson(const SystemCall& each) {
  Json json = {{"call", escaped(each.call)}, {"returned", each.returned}};
  if (!each.error.empty()) {
    json["error"] = each.error;
    json["reason"] = each.reason;
  }
  return json;
}

void printJson(const EntryPoint& entry, const Outcome& outcome,
               const std::vector<std::string>& trace,
               const std::optional<std::vector<SystemCall>>& systemCalls) {
  Json json = toJson(entry, outcome);
  for (const std::string& call : trace) json["trace"].push_back(escaped(call));
  if (systemCalls) {
    json["system_calls"] = Json::array();
    for (const SystemCall& each : *systemCalls) json["system_calls"].push_back(toJson(each));
  }
  std::cout << toLine(json) << '\n';
}

// Failed calls are highlighted.
void printSystemCalls(const std::vector<SystemCall>& calls) {
  if (calls.empty()) std::cerr << styled(std::cerr, Style::kDim, "(no system calls)") << '\n';
  for (const SystemCall& each : calls) {
    const Style style = each.error.empty() ? Style::kDim : Style::kFailure;
    std::cerr << styled(std::cerr, style, escaped(describe(each))) << '\n';
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
    const SystemCallMarks marks;
    outcome.result = entry.function(arguments);
    outcome.raised = small::takeException();
  } catch (const std::exception& error) {  // std::length_error or std::bad_alloc
    small::takeException();
    outcome.raised = small::Exception{"C++ exception", error.what()};
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const auto* object = std::get_if<void*>(&arguments[i]);
    if (parameters[i].isFilled && object != nullptr && small::className(*object) == "Byte[]") {
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

// The name of an operation, and dimmed its arguments and result.
void printTrace(const std::vector<std::string>& calls) {
  for (const std::string& call : calls) {
    const std::string line = escaped(call);
    const std::size_t end = std::min(line.find('('), line.size());
    std::cerr << line.substr(0, end) << styled(std::cerr, Style::kDim, line.substr(end)) << '\n';
  }
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

int runCall(const CallOptions& options) {
  const small::Scope scope;
  const EntryPoint& entry = findEntryPoint(options.entry);
  if (options.systemCalls) runUnderStrace();
  Outcome outcome;
  std::vector<std::string> trace;
  std::optional<std::vector<SystemCall>> systemCalls;
  {
    std::optional<recording::Recorder> recorder;
    if (options.trace) recorder.emplace();
    outcome = callEntryPoint(entry, options.arguments);
    if (recorder) trace = recorder->calls();
  }
  if (options.systemCalls) systemCalls = systemCallsSoFar();
  if (options.json) {
    printJson(entry, outcome, trace, systemCalls);
  } else {
    printTrace(trace);
    if (systemCalls) printSystemCalls(*systemCalls);
    print(outcome);
  }
  return outcome.raised ? kRaised : kDone;
}

}  // namespace quen::driver
