// The workloads of the implementations that export the entry points: the module and its plain form.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "bench/implementations/implementation.h"

namespace quen::bench {

// The linker decides whose entry points are measured. Only the validator is passed as an argument,
// because an entry point would measure it together with reading a file.
std::map<std::string, Workload> workloadsOf(bool (*validate)(const std::string& text,
                                                             std::uint64_t& errorOffset));

}  // namespace quen::bench
