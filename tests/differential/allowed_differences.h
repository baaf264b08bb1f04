// The differences between the module and the plain form that are allowed, with reasons. Any other
// difference is a fault.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace quen::differential {

// How much text a writer may buffer.
inline constexpr std::size_t kWriterBuffer = 8'192;

enum class Allowed {
  kTextsWait,
  kFewerSystemCalls,
  kClosedOnExec,
  kNothingWrittenTwice,
  kExhaustedMemory,
  kRetriedOpen,
};

struct AllowedDifference {
  Allowed which;
  std::string_view name;
  std::string_view reason;
};

// docs/differential.md explains each by name.
inline constexpr std::array kAllowedDifferences = {
    AllowedDifference{
        Allowed::kTextsWait, "texts wait up to 8 KiB",
        "std::filebuf bypasses its buffer for writes of 1,024 bytes and more; a writer "
        "buffers them until the buffer is full. So the flush reports a full disk, and "
        "bytes that could not be written are tried once more when the writer is "
        "destroyed."},
    AllowedDifference{
        Allowed::kFewerSystemCalls, "fewer system calls",
        "std::filebuf fills its buffer of 8,191 bytes even for a smaller read, so it "
        "consumes more of a pipe or terminal, and fails to read within 8 KiB of the "
        "largest file offset. fdopendir(3), through which std::filesystem lists, asks "
        "for the flags of the descriptor."},
    AllowedDifference{Allowed::kClosedOnExec, "descriptors closed on exec",
                      "std::filebuf opens without O_CLOEXEC, so its descriptor is inherited by "
                      "programs that the process executes."},
    AllowedDifference{Allowed::kNothingWrittenTwice, "no text written twice",
                      "After a short write in a flush that then failed, std::filebuf writes the "
                      "whole buffer again when it is destroyed."},
    AllowedDifference{Allowed::kExhaustedMemory, "exhausted memory",
                      "Either std::length_error or std::bad_alloc is thrown for a size that cannot "
                      "be allocated. A whole-text read of the plain form that runs out of memory "
                      "truncates the text; the module throws std::bad_alloc."},
    AllowedDifference{Allowed::kRetriedOpen, "an interrupted open is retried",
                      "std::filebuf does not retry open(2) after EINTR, for example while it waits "
                      "for the other end of a FIFO."},
};

}  // namespace quen::differential
