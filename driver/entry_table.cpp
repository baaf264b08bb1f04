#include "driver/entry_table.h"

#include <string>

#include "driver/suggestions.h"
#include "driver/text.h"

namespace quen::driver {

HelpSection namesHelp() {
  return {
      "Names of entry points",
      {{"An entry point has a full name and a short one: the class, a dot, the member, without the "
        "packages. A member keeps its leading underscore; a property getter has \"get.\" before "
        "it.",
        {{"quen_io_Path_normalize", "Path.normalize"},
         {"quen_io_Path__normalizePath", "Path._normalizePath"},
         {"__quen_propget_quen_io_Path_exists", "Path.get.exists"},
         {"quen_io_toml_TOML__readStrictPath", "TOML._readStrictPath"}}},
       {"The class may be left out where the rest is unique: normalize, _normalizePath, "
        "get.exists."}}};
}

namespace {

std::string_view withoutClass(std::string_view shortName) {
  return shortName.substr(shortName.find('.') + 1);
}

std::string nearestTo(std::string_view name) {
  std::vector<Candidate> candidates;
  for (const EntryPoint& entry : entryPoints()) {
    candidates.push_back(
        {std::string(entry.shortName),
         {std::string(withoutClass(entry.shortName)), std::string(entry.fullName)}});
  }
  return suggestionFor(name, candidates, "see 'list'");
}

}  // namespace

std::vector<const EntryPoint*> entryPointsNamed(std::string_view name) {
  std::vector<const EntryPoint*> found;
  for (const EntryPoint& entry : entryPoints()) {
    if (entry.fullName == name || entry.shortName == name) return {&entry};
    if (withoutClass(entry.shortName) == name) found.push_back(&entry);
  }
  return found;
}

const EntryPoint& findEntryPoint(std::string_view name) {
  const std::vector<const EntryPoint*> found = entryPointsNamed(name);
  if (found.size() == 1) return *found.front();
  if (found.empty()) throw UsageError("no entry point " + inQuotes(name) + ": " + nearestTo(name));
  std::vector<std::string_view> candidates;
  for (const EntryPoint* entry : found) candidates.push_back(entry->shortName);
  throw UsageError(inQuotes(name) + " is ambiguous: " + join(candidates));
}

}  // namespace quen::driver
