// What goes into an entry point and what comes out of it.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

namespace quen::driver {

// Something that was asked for in a way that cannot be done; its words are for the person who
// asked.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Nothing {};

// A result, by the type of the entry point; objects as the module has them.
using Value = std::variant<Nothing, bool, std::int64_t, void*>;

// An argument. A text (none is the null pointer) may stand in an object's place as well.
using Argument = std::variant<std::int64_t, void*, std::optional<std::string>>;

// The argument as an entry point takes it, valid as long as the argument stays where it is.
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
