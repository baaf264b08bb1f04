#include "driver/suggestions.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace quen::driver {

namespace {

constexpr std::size_t kMostSuggestions = 4;

std::string lowerCase(std::string_view text) {
  std::string lower;
  for (const char each : text) {
    lower += static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  }
  return lower;
}

// The Damerau-Levenshtein distance (optimal string alignment). Texts of very different lengths are
// not compared, because user input may be very long.
std::size_t editDistance(std::string_view from, std::string_view to) {
  if (from.size() > 2 * to.size()) return from.size();

  std::vector<std::vector<std::size_t>> steps(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      steps[i][j] = i + j;
      if (i == 0 || j == 0) continue;
      const std::size_t replaced = steps[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      steps[i][j] = std::min({replaced, steps[i - 1][j] + 1, steps[i][j - 1] + 1});
      if (i == 1 || j == 1) continue;
      const bool exchanged = from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (exchanged) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps.back().back();
}

// The distance of the wanted text, in lower case, from a name; 0 if it is a substring.
std::size_t distance(std::string_view wanted, const Candidate& candidate) {
  const std::string name = lowerCase(candidate.name);
  if (name.find(wanted) != std::string::npos) return 0;

  std::size_t least = editDistance(wanted, name);
  for (const std::string& spelling : candidate.spellings) {
    least = std::min(least, editDistance(wanted, lowerCase(spelling)));
  }
  return least;
}

}  // namespace

std::string suggestionFor(std::string_view typed, const std::vector<Candidate>& candidates,
                          const std::string& otherwise) {
  if (typed.empty()) return otherwise;

  const std::string wanted = lowerCase(typed);
  std::size_t least = wanted.size() / 3;
  std::vector<std::string_view> nearest;
  for (const Candidate& candidate : candidates) {
    const std::size_t away = distance(wanted, candidate);
    if (away > least) continue;
    if (away < least) nearest.clear();
    least = away;
    nearest.push_back(candidate.name);
  }
  nearest.resize(std::min(nearest.size(), kMostSuggestions));
  return nearest.empty() ? otherwise : "did you mean " + join(nearest) + "?";
}

std::string join(const std::vector<std::string_view>& names) {
  std::string text;
  for (const std::string_view name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

}  // namespace quen::driver
