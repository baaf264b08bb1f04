// Prints the number of entry points, each of which the loader has to find (LD_BIND_NOW).

#include <quen/io/entry_points.h>

#include <cstdint>
#include <iostream>
#include <set>

int main() {
  const std::set<std::uintptr_t> addresses = {
#define QUEN_IO_ENTRY(name, result, ...) reinterpret_cast<std::uintptr_t>(&name),
#include <quen/io/entry_list.h>
#undef QUEN_IO_ENTRY
  };
  std::cout << addresses.size() << '\n';
}
