// Formats results as text and as JSON.
#pragma once

#include <string>
#include <vector>

#include "driver/json_text.h"
#include "driver/values.h"

namespace quen::driver {

// One line for a result: FolderPath "a/b", "text", hex:0102, list of 3, done.
std::string describe(const Value& value);

// One such line for each element of a list; nothing for any other value.
std::vector<std::string> describeElements(const Value& value);

bool isList(const Value& value);

// A JSON object with the type and contents of the value.
Json toJson(const Value& value);

}  // namespace quen::driver
