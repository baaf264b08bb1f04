// Programs: sequences of calls, decoded from bytes that come from a fuzzer or a random generator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/differential/judge.h"

namespace quen::differential {

// Decodes a program, fills the folders and runs it in both forms. Returns "" if they do not differ,
// otherwise the first differing call, or the difference on disk.
std::string runProgram(Judge& judge, const std::uint8_t* data, std::size_t size);

// Whether any text is a safe argument, because the entry point is lexical or only queries the file
// system.
bool mayBeGivenAnyText(const EntryPoint& entry);

// The bytes of a random program; deterministic for a seed.
std::vector<std::uint8_t> randomProgram(std::uint64_t seed);

}  // namespace quen::differential
