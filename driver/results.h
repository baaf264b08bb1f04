// How results are shown, as text and as JSON.
#pragma once

#include <string>
#include <vector>

#include "driver/json_text.h"
#include "driver/values.h"

namespace quen::driver {

// One line for a result: FolderPath "a/b", "text", hex:0102, list of 3, done.
std::string describe(const Value& value);

// The same for each element when the value is a list, nothing for any other value.
std::vector<std::string> describeElements(const Value& value);

bool isList(const Value& value);

// An object with the value's type and what it holds.
Json toJson(const Value& value);

}  // namespace quen::driver
