// The module as a shared library, so that the checked one can take its place. It has no entry point
// that only validates.

#include <stdexcept>

#include "bench/implementations/entry_points.h"

int main() {
  auto workloads = quen::bench::workloadsOf(
      [](const std::string&, std::uint64_t&) -> bool { throw std::logic_error("not exported"); });
  workloads.erase("utf8");
  return quen::bench::serve(workloads);
}
