// A walk through a folder tree by means of the entry points.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace quen::driver {

enum class Kind { kFile, kFolder, kLink, kOther, kMissing };
inline constexpr std::array kKinds = {Kind::kFile, Kind::kFolder, Kind::kLink, Kind::kOther,
                                      Kind::kMissing};

enum class Text { kUtf8, kNotUtf8, kNotRead };
inline constexpr std::array kTexts = {Text::kUtf8, Text::kNotUtf8, Text::kNotRead};

struct Entry {
  std::string path;  // relative to the root; "." is the root itself
  Kind kind = Kind::kMissing;
  std::int64_t size = 0;        // of a regular file, else 0
  std::int64_t modifiedMs = 0;  // not set for links and missing entries
  std::string target;           // of a link
  Text text = Text::kNotRead;   // of a file
  std::string fault;            // the reader's message with the offset of the first invalid byte
  std::int64_t faultByte = 0;
  std::string error;  // why it could not be read; empty if it could
};

struct Walk {
  std::string root;
  std::int64_t maxTextBytes = 0;  // larger files are not read; negative: no file is
  std::int64_t maxDepth = std::numeric_limits<std::int64_t>::max();  // the root has a depth of 0
  bool oneFileSystem = false;  // folders of another file system than the root's are not listed
  std::vector<std::string> excluded = {};  // patterns of entries to leave out with their contents
  std::function<void(const Entry&)> visit;
};

// Visits the root and everything below it in pre-order: each folder, then its contents, sorted by
// the bytes of their names. Links are visited, not followed; the root is followed if it is a link.
//
// At most st_size bytes of a file are read, so memory is bounded by the largest text even if a file
// is endless, and a file of size 0 is not opened: in /proc such a file may be endless, or block.
void walk(const Walk& plan);

}  // namespace quen::driver
