// Checks all requirements, one after the other, and reports the results.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "conformance/expected_failures.h"
#include "conformance/operations.h"
#include "conformance/report.h"
#include "conformance/requirement.h"
#include "conformance/scratch_folder.h"
#include "conformance/verdict.h"

namespace quen::conformance {

namespace {

// The adapter whose collect() is called inside the operations.
std::atomic<const Adapter*> gAdapter{nullptr};

bool isChosen(const Requirement& requirement, const Options& options) {
  const std::string words = requirement.words;
  return options.words.empty() ||
         std::any_of(options.words.begin(), options.words.end(), [&](const std::string& word) {
           return words.find(word) != std::string::npos;
         });
}

Finding findingOf(const Requirement& requirement, const Verdict& verdict, const Options& options,
                  const ExpectedFailures& expectedFailures) {
  const auto expected = expectedFailures.find(requirement.words);
  const bool isExpected = expected != expectedFailures.end();
  const bool isAdvised = requirement.severity == Severity::kAdvised && !options.strict;
  if (verdict.outcome == Outcome::kSkipped) {
    return {&requirement, Result::kSkipped, verdict.message};
  }
  if (verdict.outcome == Outcome::kMet) {
    if (isExpected) return {&requirement, Result::kNowMet, expected->second};
    return {&requirement, Result::kMet, ""};
  }
  if (isExpected) return {&requirement, Result::kExpected, expected->second};
  return {&requirement, isAdvised ? Result::kAdvice : Result::kNotMet, verdict.message};
}

struct Run {
  std::vector<Finding> findings;
  bool threadNeverReturned = false;
};

Run checkAll(const Requirements& requirements, const Adapter& adapter, std::ostream& out,
             const Options& options, const ExpectedFailures& expected) {
  // Inside this folder, what crashed checks leave behind is removed, too.
  const ScratchFolder scratch;
  const ScratchFolder::Inside inside(scratch.path());
  gAdapter = &adapter;
  const auto checked = options.oneProcess ? check : checkInOwnProcess;
  const auto patience = options.patience.value_or(adapter.patience());
  Run run;
  for (const Requirement& requirement : requirements) {
    if (!isChosen(requirement, options)) continue;
    const Verdict verdict = checked(requirement, adapter, patience);
    run.threadNeverReturned |= verdict.outcome == Outcome::kNeverReturned;
    run.findings.push_back(findingOf(requirement, verdict, options, expected));
    if (options.format == Options::Format::kText) printLine(out, run.findings.back());
  }
  gAdapter = nullptr;
  return run;
}

void printEnd(std::ostream& out, const std::vector<Finding>& findings, Options::Format format) {
  switch (format) {
    case Options::Format::kText: return printSummary(out, findings);
    case Options::Format::kJson: return printJson(out, findings);
    case Options::Format::kJUnit: return printJUnit(out, findings);
  }
}

ExpectedFailures expectedFailures(const Options& options, const Requirements& requirements) {
  if (options.expectedFailures.empty()) return {};
  return readExpectedFailures(options.expectedFailures, requirements);
}

}  // namespace

void* Adapter::newFolderSubclass(const std::string&) const { return nullptr; }
void Adapter::enterThread() const {}
void Adapter::leaveThread() const {}
std::optional<bool> Adapter::sameObject(void*, void*) const { return std::nullopt; }
void Adapter::collect() const {}
bool Adapter::oneThreadOnly() const { return false; }
void Adapter::afterFork() const {}
std::chrono::milliseconds Adapter::patience() const { return std::chrono::seconds(10); }

void operations::collect() {
  if (const Adapter* adapter = gAdapter) adapter->collect();
}

Requirements allRequirements() {
  Requirements all;
  for (const auto subject :
       {textRequirements, pathRequirements, objectRequirements, magicRequirements,
        entryRequirements, byteArrayRequirements, listRequirements, threadRequirements,
        exceptionRequirements, reentryRequirements}) {
    for (Requirement& each : subject()) all.push_back(std::move(each));
  }
  return all;
}

int runConformance(const Adapter& adapter, std::ostream& out, const Options& options) {
  const Requirements requirements = allRequirements();
  ExpectedFailures expected;
  try {
    expected = expectedFailures(options, requirements);
  } catch (const UsageError& error) {
    std::cerr << error.what() << '\n';
    return 2;
  }

  const Run run = checkAll(requirements, adapter, out, options, expected);
  printEnd(out, run.findings, options.format);
  const int status = std::any_of(run.findings.begin(), run.findings.end(), isFailure) ? 1 : 0;
  if (run.threadNeverReturned && options.oneProcess) std::_Exit(status);
  return status;
}

}  // namespace quen::conformance
