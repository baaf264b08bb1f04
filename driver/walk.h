// A walk through a folder tree, by what the entry points tell.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quen::driver {

enum class Kind { kFile, kFolder, kLink, kOther, kMissing };

enum class Text { kUtf8, kNotUtf8, kNotRead };

struct Entry {
  std::string path;  // from the root on; "." is the root itself
  Kind kind = Kind::kMissing;
  std::int64_t size = 0;        // of a regular file, else 0
  std::int64_t modifiedMs = 0;  // of a link and what is missing: not asked
  Text text = Text::kNotRead;   // of a file
  std::string fault;            // where its bytes stop being UTF-8, as the reader says it
  std::int64_t faultByte = 0;
  std::string error;  // why it could not be read, if so
};

struct Walk {
  std::string root;
  std::int64_t maxTextBytes = 0;            // larger files are not read
  std::function<bool(const Entry&)> visit;  // false ends the walk
};

// Visits the root and everything below it: each folder, then at once what is in it, by names in the
// order of their bytes. A link is visited and not followed; the root is followed when it is one.
void walk(const Walk& plan);

}  // namespace quen::driver
