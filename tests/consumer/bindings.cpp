// A table of all entry points with their descriptions, as a generator of bindings makes it.

#include <quen/io/entry_points.h>

#include <iostream>
#include <string_view>
#include <type_traits>

namespace {

struct Binding {
  std::string_view name;
  std::string_view result;
  std::string_view parameters;
};

constexpr Binding kBindings[] = {
#define QUEN_IO_ENTRY(name, result, ...) {#name, #result, #__VA_ARGS__},
#include <quen/io/entry_list.h>
#undef QUEN_IO_ENTRY
};

struct Help {
  std::string_view name;
  std::string_view shortName;
  std::string_view parameterNames;
  std::string_view description;
};

constexpr Help kHelp[] = {
#define QUEN_IO_ENTRY_HELP(name, shortName, names, description) \
  {#name, shortName, names, description},
#include <quen/io/entry_help.h>
#undef QUEN_IO_ENTRY_HELP
};

static_assert(std::size(kBindings) == std::size(kHelp));

// The listed types are those of the declarations.
#define QUEN_IO_ENTRY(name, result, ...) \
  static_assert(std::is_same_v<decltype(name), result(__VA_ARGS__)>);
#include <quen/io/entry_list.h>
#undef QUEN_IO_ENTRY

}  // namespace

int main() {
  for (std::size_t i = 0; i < std::size(kBindings); ++i) {
    const auto& [name, result, parameters] = kBindings[i];
    std::cout << result << ' ' << name << '(' << parameters << ") " << kHelp[i].shortName << '('
              << kHelp[i].parameterNames << ")\n";
    if (kHelp[i].name != name || kHelp[i].description.empty()) return 1;
  }
}
