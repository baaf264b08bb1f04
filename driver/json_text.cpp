#include "driver/json_text.h"

#include <nlohmann/json.hpp>

#include "driver/text.h"

namespace quen::driver {

void putText(Json& object, const std::string& key, const std::string& bytes) {
  object[key] = bytes;
  if (!isUtf8(bytes)) object[key + "_hex"] = hexOf(bytes);
}

std::string toLine(const Json& value) {
  return escapedForJson(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace quen::driver
