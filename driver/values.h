// Arguments and results of entry points.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

namespace quen::driver {

// A usage error, with a message for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Nothing {};

// A result, by the return type of the entry point. Objects are the runtime's pointers.
using Value = std::variant<Nothing, bool, std::int64_t, void*>;

// An argument. A text (nullopt: the null pointer) can also be passed as an object.
using Argument = std::variant<std::int64_t, void*, std::optional<std::string>>;

// Converts the argument to a parameter type; the result points into the argument.
template <typename T>
T passed(const Argument& argument) {
  if constexpr (std::is_pointer_v<T>) {
    if (const auto* object = std::get_if<void*>(&argument)) return static_cast<T>(*object);
    const auto& text = std::get<std::optional<std::string>>(argument);
    return text ? const_cast<char*>(text->c_str()) : nullptr;
  } else {
    return static_cast<T>(std::get<std::int64_t>(argument));
  }
}

}  // namespace quen::driver
