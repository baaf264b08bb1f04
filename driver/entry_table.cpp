#include "driver/entry_table.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <string>

#include "driver/text.h"

namespace quen::driver {

const char* const kNamesHelp =
    "An entry point has a full name and a short one: the class, a dot, the member, without the\n"
    "packages. A member keeps its leading underscore; a property getter has \"get.\" before it.\n"
    "  quen_io_Path_normalize                 Path.normalize\n"
    "  quen_io_Path__normalizePath            Path._normalizePath\n"
    "  __quen_propget_quen_io_Path_exists     Path.get.exists\n"
    "  quen_io_toml_TOML__readStrictPath      TOML._readStrictPath\n"
    "The class may be left out where the rest is unique: normalize, _normalizePath, get.exists.";

namespace {

constexpr std::size_t kMostSuggestions = 4;

std::string_view withoutClass(std::string_view shortName) {
  return shortName.substr(shortName.find('.') + 1);
}

std::string lowerCase(std::string_view text) {
  std::string lower;
  for (const char each : text) {
    lower += static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  }
  return lower;
}

// How many characters have to be put in, taken out or replaced to get from one text to the other.
std::size_t editDistance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// How far what was typed is from an entry point's name: 0 when it is a part of it.
std::size_t distance(std::string_view typed, const EntryPoint& entry) {
  const std::string wanted = lowerCase(typed);
  const std::string name = lowerCase(entry.shortName);
  if (name.find(wanted) != std::string::npos) return 0;
  return std::min({editDistance(wanted, name), editDistance(wanted, withoutClass(name)),
                   editDistance(wanted, lowerCase(entry.fullName))});
}

std::string join(const std::vector<std::string_view>& names) {
  std::string text;
  for (const std::string_view name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

std::string suggestionsFor(std::string_view typed) {
  std::vector<std::pair<std::size_t, std::string_view>> nearest;
  for (const EntryPoint& entry : entryPoints()) {
    const std::size_t away = distance(typed, entry);
    if (away <= typed.size() / 3) nearest.emplace_back(away, entry.shortName);
  }
  std::ranges::stable_sort(nearest, {}, &std::pair<std::size_t, std::string_view>::first);

  std::vector<std::string_view> names;
  for (const auto& [away, name] : nearest) {
    if (away == nearest.front().first && names.size() < kMostSuggestions) names.push_back(name);
  }
  return names.empty() ? "see 'list'" : "did you mean " + join(names) + "?";
}

}  // namespace

const EntryPoint& findEntryPoint(std::string_view name) {
  std::vector<const EntryPoint*> found;
  for (const EntryPoint& entry : entryPoints()) {
    if (entry.fullName == name || entry.shortName == name) return entry;
    if (withoutClass(entry.shortName) == name) found.push_back(&entry);
  }
  if (found.size() == 1) return *found.front();
  if (found.empty()) {
    throw UsageError("no entry point " + inQuotes(name) + ": " +
                     (name.empty() ? "see 'list'" : suggestionsFor(name)));
  }
  std::vector<std::string_view> candidates;
  for (const EntryPoint* entry : found) candidates.push_back(entry->shortName);
  throw UsageError(inQuotes(name) + " is ambiguous: " + join(candidates));
}

}  // namespace quen::driver
