// State that the operations share with the embedding interface.
#pragma once

#include "runtime/small/path_kinds.h"

namespace quen::small {

// The kinds recorded by listings in this process.
PathKinds& pathKinds();

}  // namespace quen::small
