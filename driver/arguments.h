// Converts the words of a command line to arguments of an entry point.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "driver/entry_table.h"
#include "driver/help.h"
#include "driver/values.h"

namespace quen::driver {

// Earlier results by name, such as "$1" or "$file".
using Results = std::map<std::string, Value, std::less<>>;

// Converts a word to an argument. Throws UsageError if the parameter does not accept it.
Argument argumentOf(const Parameter& parameter, const std::string& word, const Results& results);

// Parses a decimal integer, which may be negative. Throws UsageError if it is malformed or out of
// range.
std::int64_t integerOf(std::string_view digits, std::int64_t least, std::int64_t most);

// Whether a word denotes a value by its form, such as "$1" or "path:a/b".
bool isValue(std::string_view word);

// The value that such a word denotes. Throws UsageError if it cannot be created.
Value valueOf(const std::string& word, const Results& results);

// The prefixes of all forms, such as "path:".
std::span<const std::string_view> argumentPrefixes();

// The help on all forms of arguments.
HelpSection argumentsHelp();

}  // namespace quen::driver
