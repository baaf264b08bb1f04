// Which faults a program meets: decided by its seed, the path and the kind of the operation, so
// that both forms meet the same, whatever number of operations they need, and so does a repetition.
// The soak and the server of its file system share the state in this header through a mapped file.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace quen::soak {

inline constexpr std::size_t kLanes = 16;  // threads

enum class Operation : std::uint8_t {
  kStatus,
  kReadLink,
  kMakeFolder,
  kUnlink,
  kRemoveFolder,
  kRename,
  kTruncate,
  kSetTimes,
  kOpen,
  kCreate,
  kRead,
  kWrite,
  kClose,
  kOpenFolder,
  kReadFolder,
  kCount
};
inline constexpr auto kOperations = static_cast<std::size_t>(Operation::kCount);
inline constexpr std::array<std::string_view, kOperations> kOperationNames = {
    "status", "readlink", "mkdir", "unlink", "rmdir", "rename",  "truncate", "utimens",
    "open",   "create",   "read",  "write",  "close", "opendir", "readdir"};

enum class Kind : std::uint8_t {
  kError,         // every operation fails with the same errno
  kMidway,        // reads and writes fail from an offset on, listings after so many entries
  kInterruption,  // every other read or write fails with EINTR, beginning with the first
  kShort,         // reads and writes transfer at most so many bytes
  kDelay,
  kCount
};
inline constexpr auto kKinds = static_cast<std::size_t>(Kind::kCount);
inline constexpr std::array<std::string_view, kKinds> kKindNames = {
    "errors", "midway", "interruptions", "short", "delays"};

struct Fault {
  int error = 0;
  std::int64_t failsFrom = std::numeric_limits<std::int64_t>::max();  // offset or entry
  std::size_t most = std::numeric_limits<std::size_t>::max();         // bytes of one transfer
  bool interrupts = false;
  unsigned delayMicroseconds = 0;
};

// The path is relative to the parent of a form's folder: "folder/a" or "writers/1". Numbers of
// temporary files are left out of account.
Fault faultOf(std::uint64_t seed, Operation operation, std::string_view path);

std::uint64_t mixed(std::uint64_t number);

// What one form of one thread meets.
struct Met {
  std::atomic<std::uint64_t> during{0};  // faulty operations since the call began, a bit for each
  std::array<std::array<std::atomic<std::uint64_t>, kKinds>, kOperations> faults{};
};

struct Lane {
  std::atomic<std::uint64_t> seed{0};
  std::atomic<std::uint64_t> run{0};  // number of the program, also if it is repeated
  std::atomic<std::uint64_t> requests{0};
  std::atomic<bool> faulty{false};  // else no operation fails
  std::array<Met, 2> met{};         // of the plain form and of the module
};

struct Plan {
  std::array<Lane, kLanes> lanes{};
};

// Maps a plan into memory that is shared with other processes; makes the file if it is missing.
// Exits the process on failure.
Plan& mapPlan(const char* file);

}  // namespace quen::soak
