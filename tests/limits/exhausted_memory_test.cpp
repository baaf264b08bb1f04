// Every entry point with exhausted memory: each of its allocations fails in turn.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/limits/every_entry_point.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/process_state.h"

using namespace quen::small;
using namespace quen::tests;

namespace {

// The number of allocations of this thread that succeed before one fails; negative: none fails.
thread_local int tAllocationsBefore = -1;

// Larger allocations of this thread fail.
thread_local std::size_t tMost = std::numeric_limits<std::size_t>::max();
thread_local std::size_t tLargest = 0;  // that was asked for

void* allocate(std::size_t size, std::size_t alignment) {
  tLargest = std::max(tLargest, size);
  if (size > tMost) throw std::bad_alloc();
  if (tAllocationsBefore >= 0 && tAllocationsBefore-- == 0) throw std::bad_alloc();
  const std::size_t whole = (size / alignment + 1) * alignment;
  void* memory = std::aligned_alloc(alignment, whole);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// Replaceable allocation functions; as the program defines them, the module's shared library uses
// them too.
void* operator new(std::size_t size) { return allocate(size, alignof(std::max_align_t)); }
void* operator new[](std::size_t size) { return allocate(size, alignof(std::max_align_t)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace {

class ExhaustedMemory : public BoundaryTest {
 protected:
  // Makes the call and returns whether an allocation failed.
  static bool failsAtAllocation(int number, const EntryPointCall& call, const Ground& ground) {
    tAllocationsBefore = number;
    try {
      call.make(ground);
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(tAllocationsBefore, -1) << "nothing had failed";
    }
    const bool failed = tAllocationsBefore == -1;
    tAllocationsBefore = -1;
    return failed;
  }

  // Deadlocks if the registry's lock is still held.
  void expectRegistryUsable() {
    const auto handle = quen_io_FileWriter__openPath((scratch / "other").c_str(), 0);
    quen_io_FileWriter__writeHandle(handle, "text");
    quen_io_FileWriter__closeHandle(handle);
    EXPECT_EQ(raised(), "");
    EXPECT_EQ(contents(scratch / "other"), "text");
  }
};

// std::bad_alloc propagates; a listing raises an exception with its message instead. Each entry
// point runs in a child process, so that a crash is reported by name and the others still run.
TEST_F(ExhaustedMemory, LeavesAsBadAllocAndLeavesNothingBehind) {
  for (const EntryPointCall& call : everyEntryPoint()) {
    SCOPED_TRACE(call.name);
    inChild([&] {
      for (int number = 0;; ++number) {
        const Scope objects;
        const auto before = openFiles();
        bool failed = false;
        {
          const Ground ground(scratch);
          failed = failsAtAllocation(number, call, ground);
          const auto exception = takeException();
          if (exception) {
            EXPECT_EQ(exception->message, std::bad_alloc().what()) << number;
          }
        }
        EXPECT_EQ(openFiles(), before) << "after allocation " << number;
        expectRegistryUsable();
        if (!failed) return;
      }
    });
  }
}

// std::ofstream throws std::bad_alloc after it has created the file.
TEST_F(ExhaustedMemory, LeavesNoTemporaryIndex) {
  const std::string index = scratch.file("index", "old");
  const EntryPointCall publish{"publish", [&](const Ground&) {
                                 quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(),
                                                                                    "new");
                               }};
  const Ground ground(scratch);
  int failures = 0;

  for (int number = 0; failsAtAllocation(number, publish, ground); ++number) {
    ++failures;
    EXPECT_EQ(contents(index), "old");
    EXPECT_EQ(namesIn(scratch.path()).find(".tmp-"), std::string::npos) << "at " << number;
  }

  EXPECT_GT(failures, 0);
  EXPECT_EQ(contents(index), "new");
}

// Without the memory for the claimed size of the file, its text grows by doubling.
TEST_F(ExhaustedMemory, ForTheClaimedSizeOfAFileDoesNotFailTheRead) {
  const Ground ground(scratch);
  void* read = nullptr;
  const EntryPointCall call{"quen_io_FileReader__readAllTextPath", [&](const Ground& g) {
                              read = quen_io_FileReader__readAllTextPath(g.file.c_str());
                            }};
  int complete = 0;

  for (int number = 0; failsAtAllocation(number, call, ground); ++number) {
    if (read == nullptr) continue;
    ++complete;
    EXPECT_EQ(text(std::exchange(read, nullptr)), contents(ground.file));
  }

  EXPECT_EQ(complete, 1) << "the reservation alone can be retried";
}

// A sparse file claims 1 TiB, which would be charged in full where memory is not overcommitted.
TEST_F(ExhaustedMemory, IsNotCausedByAClaimedSizeAlone) {
  constexpr std::size_t kMostClaimed = std::size_t{1} << 30;
  const std::string file = scratch.file("file");
  std::filesystem::resize_file(file, std::uintmax_t{1} << 40);

  tMost = std::size_t{1} << 20;
  tLargest = 0;
  EXPECT_THROW(quen_io_FileReader__readAllTextPath(file.c_str()), std::bad_alloc);
  tMost = std::numeric_limits<std::size_t>::max();

  EXPECT_GE(tLargest, kMostClaimed);
  EXPECT_LT(tLargest, kMostClaimed + 100);
}

}  // namespace
