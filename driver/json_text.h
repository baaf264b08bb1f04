// JSON that represents arbitrary bytes without loss and is safe to print on a terminal.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace quen::driver {

using Json = nlohmann::ordered_json;

// Stores the bytes under the key. If they are not UTF-8, invalid bytes are replaced by U+FFFD, and
// all bytes are also stored under KEY_hex.
void putText(Json& object, const std::string& key, const std::string& bytes);

// The value on one line, without a newline. Printable UTF-8 is not escaped; other characters, which
// occur in strings only, are (\u001b).
std::string toLine(const Json& value);

}  // namespace quen::driver
