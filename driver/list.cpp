// quen-io list: every entry point with its signature and what it does.

#include "driver/list.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "driver/commands.h"
#include "driver/json_text.h"
#include "driver/terminal.h"

namespace quen::driver {

namespace {

constexpr std::string_view kIndent = "    ";

void writeHead(std::ostream& output, const EntryPoint& entry) {
  output << styled(output, Style::kBold, entry.shortName) << '\n'
         << kIndent << entry.signature << '\n';
}

void writeInBrief(std::ostream& output, const EntryPoint& entry) {
  writeHead(output, entry);
  output << kIndent << entry.summary << '\n';
}

// Case-insensitive substring search; an empty word matches nothing.
bool isIn(std::string_view text, std::string_view word) {
  const auto isSame = [](unsigned char one, unsigned char other) {
    return std::tolower(one) == std::tolower(other);
  };
  return !word.empty() &&
         std::search(text.begin(), text.end(), word.begin(), word.end(), isSame) != text.end();
}

bool fits(const EntryPoint& entry, std::string_view word) {
  return isIn(entry.shortName, word) || isIn(entry.fullName, word) || isIn(entry.summary, word);
}

struct Row {
  const EntryPoint* entry;
  bool isNamed;  // shown with its full description
};

std::vector<Row> rowsFor(const std::string& word) {
  std::vector<Row> rows;
  const std::vector<const EntryPoint*> named = entryPointsNamed(word);
  if (named.size() == 1) rows.push_back({named[0], true});
  if (!rows.empty() && (named[0]->fullName == word || named[0]->shortName == word)) return rows;

  for (const EntryPoint& entry : entryPoints()) {
    const bool isNamed = !rows.empty() && rows[0].entry == &entry && rows[0].isNamed;
    if (!isNamed && fits(entry, word)) rows.push_back({&entry, false});
  }
  if (rows.empty()) findEntryPoint(word);  // throws UsageError with suggestions
  return rows;
}

// In the order of the words, each entry point once.
std::vector<Row> rowsFor(const std::vector<std::string>& words) {
  std::vector<Row> rows;
  for (const std::string& word : words) {
    for (const Row& row : rowsFor(word)) {
      const bool isNew = std::ranges::find(rows, row.entry, &Row::entry) == rows.end();
      if (isNew) rows.push_back(row);
    }
  }
  return rows;
}

const char* nameOf(ParameterType type) {
  switch (type) {
    case ParameterType::kObject: return "object";
    case ParameterType::kText: return "text";
    case ParameterType::kInteger32: return "integer32";
    case ParameterType::kInteger64: break;
  }
  return "integer64";
}

Json toJson(const EntryPoint& entry) {
  Json json = {{"entry", entry.fullName},      {"name", entry.shortName},
               {"signature", entry.signature}, {"parameters", Json::array()},
               {"summary", entry.summary},     {"help", entry.help}};
  for (const Parameter& each : entry.parameters) {
    json["parameters"].push_back({{"name", each.name}, {"type", nameOf(each.type)}});
  }
  return json;
}

// One JSON object per line.
void writeJson(std::ostream& output, const std::vector<std::string>& words) {
  if (words.empty()) {
    for (const EntryPoint& entry : entryPoints()) output << toLine(toJson(entry)) << '\n';
  }
  for (const Row& row : rowsFor(words)) output << toLine(toJson(*row.entry)) << '\n';
}

}  // namespace

void listEntryPoints(std::ostream& output) {
  for (const EntryPoint& entry : entryPoints()) writeInBrief(output, entry);
}

void listEntryPoints(std::ostream& output, const std::vector<std::string>& words) {
  for (const Row& row : rowsFor(words)) {
    const auto write = row.isNamed ? explainEntryPoint : writeInBrief;
    write(output, *row.entry);
  }
}

void explainEntryPoint(std::ostream& output, const EntryPoint& entry) {
  writeHead(output, entry);
  std::string_view rest = entry.help;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    output << kIndent << rest.substr(0, end) << '\n';
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

int runList(const ListOptions& options) {
  if (options.json) {
    writeJson(std::cout, options.words);
  } else if (options.words.empty()) {
    listEntryPoints(std::cout);
  } else {
    listEntryPoints(std::cout, options.words);
  }
  return kDone;
}

}  // namespace quen::driver
