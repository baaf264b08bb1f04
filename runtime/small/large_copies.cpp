#include "runtime/small/large_copies.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <memory>

namespace quen::small {

namespace {

// glibc always maps blocks of this size, however many were freed (mallopt(3),
// M_MMAP_THRESHOLD_MAX).
constexpr std::size_t kAlwaysMapped = std::size_t{32} << 20;

// The module has such a function, too, but a runtime uses nothing of the module but its boundary.
void adviseHugePages(void* start, std::size_t size) {
#ifdef MADV_HUGEPAGE
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  std::align(page, page, start, size);
  // Only advice: a kernel without huge pages answers EINVAL.
  static_cast<void>(::madvise(start, size / page * page, MADV_HUGEPAGE));
#else
  static_cast<void>(start);
  static_cast<void>(size);
#endif
}

}  // namespace

std::string copyOf(std::string_view bytes) {
  std::string copy;
  copy.reserve(bytes.size());
  if (bytes.size() >= kAlwaysMapped) adviseHugePages(copy.data(), copy.capacity());
  copy.append(bytes);
  return copy;
}

}  // namespace quen::small
