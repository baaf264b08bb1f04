// The module, through its entry points.

#include "bench/implementations/entry_points.h"
#include "contents/utf8.h"

int main() {
  const auto validate = [](const std::string& text, std::uint64_t& errorOffset) {
    return quen::io::validateUtf8(text, errorOffset);
  };
  return quen::bench::serve(quen::bench::workloadsOf(validate));
}
