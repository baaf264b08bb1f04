#include "driver/results.h"

#include <cstdint>
#include <nlohmann/json.hpp>

#include "driver/text.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

enum class Form { kNull, kString, kPath, kList, kBytes, kOther };

Form formOf(void* object) {
  if (object == nullptr) return Form::kNull;
  const std::string name = small::className(object);
  if (name == "String") return Form::kString;
  if (name == "Byte[]") return Form::kBytes;
  if (name == "quen.collections.ArrayList") return Form::kList;
  return small::pathText(object) ? Form::kPath : Form::kOther;
}

std::string shortClassName(void* object) {
  const std::string name = small::className(object);
  return name.substr(name.rfind('.') + 1);
}

std::string hexOfByteArray(void* array) {
  const std::vector<std::uint8_t> contents = small::byteArrayContents(array);
  return hexOf({reinterpret_cast<const char*>(contents.data()), contents.size()});
}

std::string describeHeld(void* object) {
  switch (formOf(object)) {
    case Form::kNull: return "null";
    case Form::kString: return inQuotes(small::stringBytes(object));
    case Form::kBytes: return "hex:" + hexOfByteArray(object);
    case Form::kList: return "list of " + std::to_string(small::listElements(object).size());
    case Form::kOther: return shortClassName(object);
    case Form::kPath: break;
  }
  return shortClassName(object) + " " + inQuotes(*small::pathText(object)) +
         (small::hasParentTraversal(object) ? " (parent traversal)" : "");
}

Json heldToJson(void* object) {
  Json json;
  switch (formOf(object)) {
    case Form::kNull: json["type"] = "null"; break;
    case Form::kString:
      json["type"] = "string";
      putText(json, "text", small::stringBytes(object));
      break;
    case Form::kBytes:
      json["type"] = "bytes";
      json["hex"] = hexOfByteArray(object);
      break;
    case Form::kList:
      json["type"] = "list";
      json["elements"] = Json::array();
      for (void* element : small::listElements(object)) {
        json["elements"].push_back(heldToJson(element));
      }
      break;
    case Form::kPath:
      json["type"] = "path";
      json["class"] = shortClassName(object);
      putText(json, "path", *small::pathText(object));
      json["parent_traversal"] = small::hasParentTraversal(object);
      break;
    case Form::kOther:
      json["type"] = "object";
      json["class"] = shortClassName(object);
      break;
  }
  return json;
}

std::string describeHeld(Nothing) { return "done"; }
std::string describeHeld(bool truth) { return truth ? "true" : "false"; }
std::string describeHeld(std::int64_t integer) { return std::to_string(integer); }

Json heldToJson(Nothing) { return {{"type", "nothing"}}; }
Json heldToJson(bool truth) { return {{"type", "boolean"}, {"value", truth}}; }
Json heldToJson(std::int64_t integer) { return {{"type", "integer"}, {"value", integer}}; }

}  // namespace

std::string describe(const Value& value) {
  return std::visit([](auto held) { return describeHeld(held); }, value);
}

bool isList(const Value& value) {
  const auto* object = std::get_if<void*>(&value);
  return object != nullptr && formOf(*object) == Form::kList;
}

std::vector<std::string> describeElements(const Value& value) {
  std::vector<std::string> lines;
  if (!isList(value)) return lines;
  for (void* element : small::listElements(std::get<void*>(value))) {
    lines.push_back(describeHeld(element));
  }
  return lines;
}

Json toJson(const Value& value) {
  return std::visit([](auto held) { return heldToJson(held); }, value);
}

}  // namespace quen::driver
