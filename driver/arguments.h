// How the words of a command line become arguments of an entry point.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "driver/entry_table.h"
#include "driver/values.h"

namespace quen::driver {

// Earlier results by the name that stands for them, as "$1" or "$file".
using Results = std::map<std::string, Value, std::less<>>;

// The argument that a word stands for. Throws UsageError when the parameter does not take it.
Argument argumentOf(const Parameter& parameter, const std::string& word, const Results& results);

// The integer of decimal digits, with a minus for one below 0. Throws UsageError when they are none
// or it is out of range.
std::int64_t integerOf(std::string_view digits, std::int64_t least, std::int64_t most);

// Whether a word stands for a value by itself, as "$1" or "path:a/b" do.
bool isValue(std::string_view word);

// That value. Throws UsageError when it cannot be made.
Value valueOf(const std::string& word, const Results& results);

// What words of a certain form begin with: "path:" and the like.
std::span<const std::string_view> argumentPrefixes();

// All forms of words, in a few lines for --help.
extern const char* const kArgumentsHelp;

}  // namespace quen::driver
