#include "system/huge_pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <memory>

namespace quen::io {

namespace {

// madvise costs a system call, and splits the mapping (VMA) if the heap shares it with other
// blocks.
constexpr std::size_t kWorthwhile = std::size_t{32} << 20;

}  // namespace

void adviseHugePages(std::span<char> memory) {
#ifdef MADV_HUGEPAGE
  if (memory.size() < kWorthwhile) return;

  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  void* start = memory.data();
  std::size_t size = memory.size();
  std::align(page, page, start, size);
  // Only advice: a kernel without huge pages answers EINVAL.
  static_cast<void>(::madvise(start, size / page * page, MADV_HUGEPAGE));
#else
  static_cast<void>(memory);
#endif
}

}  // namespace quen::io
