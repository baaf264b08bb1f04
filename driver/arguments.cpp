#include "driver/arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <vector>

#include "driver/files.h"
#include "driver/text.h"
#include "runtime/small/host.h"

namespace quen::driver {

HelpSection argumentsHelp() {
  return {
      "Arguments",
      {{"For an object (void*):",
        {{"path:TEXT folder:TEXT file:TEXT", "a Path, FolderPath or FilePath"},
         {"string:TEXT", "a String"},
         {"hex:0102", "a Byte[] of these bytes"},
         {"@FILE", "a Byte[] of the bytes of a file"},
         {"bytes:N", "a Byte[] of N zeros, to be read into"},
         {"text:TEXT", "a text in the object's place"},
         {"null", "null"}}},
       {"For a text (const char*):",
        {{"null", "the null pointer"},
         {"text:TEXT", "TEXT, whatever it is: text:null, text:$1"},
         {"hex:ff61", "these bytes"},
         {"anything else", "as it is"}}},
       {"For an integer: decimal digits, with a minus for one below 0."},
       {"In the shell, $1 or $name stands for an earlier result: an object, an integer, or for a "
        "text the bytes of a String or the text of a path."}}};
}

namespace {

constexpr std::string_view kObjectForms =
    "null, path:TEXT, folder:TEXT, file:TEXT, string:TEXT, hex:DIGITS, @FILE, bytes:N, text:TEXT "
    "or $RESULT";
constexpr std::string_view kTextPrefix = "text:";
constexpr std::string_view kHexPrefix = "hex:";
constexpr std::string_view kNull = "null";

std::string hexBytes(std::string_view digits) {
  if (const auto bytes = bytesOfHex(digits)) return *bytes;
  throw UsageError("hex: takes pairs of hexadecimal digits, not " + inQuotes(digits));
}

void* byteArrayOf(const std::string& bytes) {
  return small::newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

void* zeroedByteArray(const std::string& length) {
  return small::newByteArray(static_cast<std::size_t>(integerOf(length, 0, kMostBytes)));
}

struct ObjectForm {
  std::string_view prefix;
  void* (*make)(const std::string& rest);
};

constexpr std::array<ObjectForm, 7> kForms = {{
    {"path:", [](const std::string& text) { return small::newPath(text); }},
    {"folder:", [](const std::string& text) { return small::newFolderPath(text); }},
    {"file:", [](const std::string& text) { return small::newFilePath(text); }},
    {"string:", [](const std::string& text) { return small::newString(text); }},
    {kHexPrefix, [](const std::string& digits) { return byteArrayOf(hexBytes(digits)); }},
    {"@", [](const std::string& path) { return byteArrayOf(readFile(path)); }},
    {"bytes:", zeroedByteArray},
}};

const ObjectForm* formOf(std::string_view word) {
  const auto fits = [word](const ObjectForm& form) { return word.starts_with(form.prefix); };
  const auto* found = std::ranges::find_if(kForms, fits);
  return found == kForms.end() ? nullptr : found;
}

bool isResult(std::string_view word) { return word.size() > 1 && word[0] == '$'; }

const Value& resultOf(const std::string& word, const Results& results) {
  const auto found = results.find(word);
  if (found == results.end()) throw UsageError("no result " + escaped(word));
  return found->second;
}

Argument objectArgument(const std::string& word, const Results& results) {
  if (word == kNull) return nullptr;
  if (word.starts_with(kTextPrefix)) return word.substr(kTextPrefix.size());
  if (isResult(word)) {
    if (const auto* object = std::get_if<void*>(&resultOf(word, results))) return *object;
    throw UsageError(word + " is no object");
  }
  if (const ObjectForm* form = formOf(word)) return form->make(word.substr(form->prefix.size()));
  throw UsageError("an object is " + std::string(kObjectForms) + ", not " + inQuotes(word));
}

// Null for null; of objects, only Strings and paths have a text.
std::optional<std::string> textOfResult(const std::string& word, const Results& results) {
  const auto* object = std::get_if<void*>(&resultOf(word, results));
  if (object != nullptr) {
    if (*object == nullptr) return std::nullopt;
    if (small::className(*object) == "String") return small::stringBytes(*object);
    if (auto text = small::pathText(*object)) return text;
  }
  throw UsageError(word + " is neither a String nor a path");
}

Argument textArgument(const std::string& word, const Results& results) {
  std::optional<std::string> text = word;
  if (word == kNull) {
    text = std::nullopt;
  } else if (isResult(word)) {
    text = textOfResult(word, results);
  } else if (word.starts_with(kTextPrefix)) {
    text = word.substr(kTextPrefix.size());
  } else if (word.starts_with(kHexPrefix)) {
    text = hexBytes(word.substr(kHexPrefix.size()));
  }
  if (text && text->find('\0') != std::string::npos) {
    throw UsageError("a text ends at its first zero byte, so it cannot hold one: " +
                     inQuotes(*text));
  }
  return text;
}

template <typename Integer>
Argument integerArgument(const std::string& word, const Results& results) {
  using Limits = std::numeric_limits<Integer>;
  if (!isResult(word)) return integerOf(word, Limits::min(), Limits::max());

  const auto* integer = std::get_if<std::int64_t>(&resultOf(word, results));
  if (integer == nullptr) throw UsageError(word + " is no integer");
  return integerOf(std::to_string(*integer), Limits::min(), Limits::max());
}

Argument argumentOfType(ParameterType type, const std::string& word, const Results& results) {
  switch (type) {
    case ParameterType::kObject: return objectArgument(word, results);
    case ParameterType::kText: return textArgument(word, results);
    case ParameterType::kInteger32: return integerArgument<std::int32_t>(word, results);
    case ParameterType::kInteger64: break;
  }
  return integerArgument<std::int64_t>(word, results);
}

}  // namespace

Argument argumentOf(const Parameter& parameter, const std::string& word, const Results& results) {
  try {
    return argumentOfType(parameter.type, word, results);
  } catch (const UsageError& error) {
    throw UsageError(std::string(parameter.name) + ": " + error.what());
  }
}

std::int64_t integerOf(std::string_view digits, std::int64_t least, std::int64_t most) {
  std::int64_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  if (error == std::errc::invalid_argument || stop != end) {
    throw UsageError("no integer: " + inQuotes(digits));
  }
  if (error == std::errc::result_out_of_range || value < least || value > most) {
    throw UsageError(std::string(digits) + " is not within " + std::to_string(least) + " to " +
                     std::to_string(most));
  }
  return value;
}

bool isValue(std::string_view word) { return isResult(word) || formOf(word) != nullptr; }

Value valueOf(const std::string& word, const Results& results) {
  if (isResult(word)) return resultOf(word, results);
  const ObjectForm* form = formOf(word);
  if (form == nullptr) throw UsageError("no value: " + inQuotes(word));
  return form->make(word.substr(form->prefix.size()));
}

std::span<const std::string_view> argumentPrefixes() {
  static const auto prefixes = [] {
    std::array<std::string_view, kForms.size() + 1> all{kTextPrefix};
    std::ranges::transform(kForms, all.begin() + 1, &ObjectForm::prefix);
    return all;
  }();
  return prefixes;
}

}  // namespace quen::driver
