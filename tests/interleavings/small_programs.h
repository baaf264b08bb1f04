// Small programs without the module, some with a mistake, to test the explorer with.
#pragma once

#include <memory>
#include <string>

#include "tests/interleavings/explorer.h"

namespace quen::interleavings {

// By name; see small_programs.cpp.
std::unique_ptr<Program> smallProgram(const std::string& name);

}  // namespace quen::interleavings
