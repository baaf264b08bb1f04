// Transparent huge pages (madvise(2), MADV_HUGEPAGE). Private to the module.
#pragma once

#include <span>

namespace quen::io {

// Advises huge pages for memory that is about to be filled, to reduce page faults. Does nothing for
// small blocks. Correctness does not depend on the advice being followed.
void adviseHugePages(std::span<char> memory);

}  // namespace quen::io
