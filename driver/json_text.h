// JSON that holds any bytes without loss and is safe to show on a terminal.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace quen::driver {

using Json = nlohmann::ordered_json;

// Puts the bytes under the key, with U+FFFD for what is not UTF-8; all bytes are then, and only
// then, under KEY_hex as well.
void putText(Json& object, const std::string& key, const std::string& bytes);

// The value on one line, all ASCII, without the line's end.
std::string toLine(const Json& value);

}  // namespace quen::driver
