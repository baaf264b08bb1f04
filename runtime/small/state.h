// What the operations leave behind for the host to look at.
#pragma once

#include <optional>

#include "runtime/small/host.h"
#include "runtime/small/path_kinds.h"

namespace quen::small {

// The exception that is pending on this thread.
std::optional<Exception>& pendingException();

// The kinds that listings recorded, for the whole process.
PathKinds& pathKinds();

}  // namespace quen::small
