// quen-io list: every entry point with its signature and what it does.

#include "driver/list.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/commands.h"
#include "driver/terminal.h"

namespace quen::driver {

namespace {

constexpr std::string_view kIndent = "    ";

void writeHead(std::ostream& output, const EntryPoint& entry) {
  output << styled(output, Style::kBold, entry.shortName) << '\n'
         << kIndent << entry.signature << '\n';
}

}  // namespace

void listEntryPoints(std::ostream& output) {
  for (const EntryPoint& entry : entryPoints()) {
    writeHead(output, entry);
    output << kIndent << entry.summary << '\n';
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

int runList(const std::vector<std::string>& names) {
  if (names.empty()) listEntryPoints(std::cout);
  for (const std::string& name : names) explainEntryPoint(std::cout, findEntryPoint(name));
  return kDone;
}

}  // namespace quen::driver
