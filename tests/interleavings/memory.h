// The memory that an explored program allocates: never reused within a schedule, so that each
// access to freed memory is noticed, and a data race at each access that no synchronization orders
// (happens-before, with vector clocks).
#pragma once

#include <cstddef>

namespace quen::interleavings {

// Whether operator new takes from this memory.
void trackAllocations(bool track);
bool areAllocationsTracked();

void* allocate(std::size_t size);
bool isTracked(const void* address);
void release(void* address);

// Forgets all blocks and accesses.
void forgetMemory();

std::size_t liveBlocks();

// Also looks at the accesses to this object, which is not allocated by the program.
void watch(const void* object, std::size_t size);

// Called by each access of an instrumented function.
void onAccess(const void* address, std::size_t size, bool writes);

// The same of an atomic operation, which takes part in no data race.
void requireLive(const void* address);

// What a thread does at one of these objects is seen by those that acquire it afterwards.
void onAcquire(const void* object);
void onRelease(const void* object);

}  // namespace quen::interleavings
