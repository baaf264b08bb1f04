// The table of entry points. Its rows are generated from the header that declares the entry points
// (entry_table.py), so a new entry point needs no change here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "driver/help.h"
#include "driver/values.h"

namespace quen::driver {

enum class ParameterType { kObject, kText, kInteger32, kInteger64 };

struct Parameter {
  std::string_view name;
  ParameterType type;
  bool isFilled;  // a Byte[] that the call fills
};

struct EntryPoint {
  std::string_view fullName;   // quen_io_Path_normalize
  std::string_view shortName;  // Path.normalize
  std::string_view signature;
  std::string_view summary;  // the first sentence of the help
  std::string_view help;
  std::vector<Parameter> parameters;
  std::function<Value(const std::vector<Argument>&)> function;  // as many as there are parameters
};

const std::vector<EntryPoint>& entryPoints();

// The entry point with this full or short name, or all with this short name without the class.
std::vector<const EntryPoint*> entryPointsNamed(std::string_view name);

// The entry point with this full or short name, or with this short name without the class if that
// is unique. Throws UsageError with suggestions if there is none or more than one.
const EntryPoint& findEntryPoint(std::string_view name);

// The help on short names.
HelpSection namesHelp();

// The rest makes a row from a function.

// A parameter as declared in the header; its type is deduced from the function.
struct ParameterNote {
  std::string_view name;
  bool isFilled;
};

template <typename T>
constexpr ParameterType parameterType() {
  if constexpr (std::is_same_v<T, void*>) return ParameterType::kObject;
  if constexpr (std::is_same_v<T, const char*>) return ParameterType::kText;
  if constexpr (std::is_same_v<T, std::int32_t>) return ParameterType::kInteger32;
  if constexpr (std::is_same_v<T, std::int64_t>) return ParameterType::kInteger64;
}

template <typename Result, typename... Parameters, std::size_t... kIndices>
Value callWith(Result (*function)(Parameters...), const std::vector<Argument>& arguments,
               std::index_sequence<kIndices...>) {
  if constexpr (std::is_void_v<Result>) {
    function(passed<Parameters>(arguments[kIndices])...);
    return Nothing{};
  } else {
    return Value(std::in_place_type<Result>, function(passed<Parameters>(arguments[kIndices])...));
  }
}

template <typename Result, typename... Parameters>
EntryPoint entryPoint(Result (*function)(Parameters...), std::string_view fullName,
                      std::string_view shortName, std::string_view signature,
                      [[maybe_unused]] std::array<ParameterNote, sizeof...(Parameters)> notes,
                      std::string_view summary, std::string_view help) {
  std::vector<Parameter> parameters;
  (parameters.push_back({notes[parameters.size()].name, parameterType<Parameters>(),
                         notes[parameters.size()].isFilled}),
   ...);
  const auto call = [function](const std::vector<Argument>& arguments) {
    return callWith(function, arguments, std::index_sequence_for<Parameters...>());
  };
  return {fullName, shortName, signature, summary, help, std::move(parameters), call};
}

}  // namespace quen::driver
