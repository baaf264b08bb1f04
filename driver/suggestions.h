// Suggestions for an unknown name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quen::driver {

// A name that can be suggested, and its alternative spellings.
struct Candidate {
  std::string name;
  std::vector<std::string> spellings;
};

// "did you mean list?", with all nearest candidates, or `otherwise` if none is near.
std::string suggestionFor(std::string_view typed, const std::vector<Candidate>& candidates,
                          const std::string& otherwise);

// The names, separated by commas.
std::string join(const std::vector<std::string_view>& names);

}  // namespace quen::driver
