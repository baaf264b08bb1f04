// quen-io dump-commands: the table of commands as JSON, from which driver/manual.py makes the
// manual page and the completions.

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "driver/command_table.h"
#include "driver/json_text.h"

namespace quen::driver {

namespace {

Json toJson(const Help& help) {
  auto sections = Json::array();
  for (const HelpSection& section : help) {
    auto paragraphs = Json::array();
    for (const Paragraph& paragraph : section.paragraphs) {
      auto rows = Json::array();
      for (const HelpRow& row : paragraph.rows) rows.push_back({row.term, row.text});
      paragraphs.push_back({{"text", paragraph.text}, {"rows", rows}});
    }
    sections.push_back({{"title", section.title}, {"paragraphs", paragraphs}});
  }
  return sections;
}

Json toJson(const Command& command) {
  Json json = {{"name", command.name},      {"summary", command.summary},
               {"usage", usageOf(command)}, {"operands", Json::array()},
               {"options", Json::array()},  {"help", toJson(command.help)}};
  for (const Operand& operand : command.operands) {
    json["operands"].push_back(
        {{"name", operand.name}, {"many", takesMany(operand)}, {"summary", operand.summary}});
  }
  for (const Option& option : command.options) {
    json["options"].push_back({{"names", namesOf(option)},
                               {"value", option.value},
                               {"default", defaultOf(option)},
                               {"summary", option.summary}});
  }
  return json;
}

}  // namespace

int runDumpCommands() {
  Options defaults;
  const CommandTable table = commandTable(defaults);
  Json json = {{"program", toJson(table.program)}, {"commands", Json::array()}};
  for (const Command& command : table.commands) {
    if (isShown(command)) json["commands"].push_back(toJson(command));
  }
  std::cout << json.dump(1) << '\n';
  return kDone;
}

}  // namespace quen::driver
