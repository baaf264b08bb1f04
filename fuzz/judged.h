// Shared by the fuzz targets that compare the module with the plain form.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tests/differential/judge.h"

namespace quen::fuzz {

inline differential::Judge& judge() {
  static differential::Judge judge;
  return judge;
}

// Prints the outcomes of both forms and aborts if they differ.
inline void requireNone(const std::string& difference) {
  if (difference.empty()) return;
  std::fwrite(difference.data(), 1, difference.size(), stderr);
  std::abort();
}

// Requires that both forms have the same outcome for this call.
inline void requireSameCall(std::string_view entry, const differential::Arguments& arguments) {
  requireNone(judge().compare(entry, arguments));
}

}  // namespace quen::fuzz
