// Copies of large texts in memory with transparent huge pages (madvise(2), MADV_HUGEPAGE).
#pragma once

#include <string>
#include <string_view>

namespace quen::small {

// A copy of the bytes. The allocator maps fresh memory for a large block, and touching it 4 KiB at
// a time would cost more in page faults than the copy itself, so it is advised to use huge pages.
std::string copyOf(std::string_view bytes);

}  // namespace quen::small
