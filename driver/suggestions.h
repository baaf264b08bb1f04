// What might have been meant by a name that there is not.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quen::driver {

// A name that may be proposed, and other ways to write it.
struct Candidate {
  std::string name;
  std::vector<std::string> spellings;
};

// "did you mean list?", with all that are equally near, or the last words when nothing is near.
std::string suggestionFor(std::string_view typed, const std::vector<Candidate>& candidates,
                          const std::string& otherwise);

// The names with a comma between them.
std::string join(const std::vector<std::string_view>& names);

}  // namespace quen::driver
