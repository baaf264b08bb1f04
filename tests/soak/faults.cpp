#include "tests/soak/faults.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <span>
#include <string>

namespace quen::soak {

namespace {

// An interrupted open is left out: there the forms may differ (docs/differential.md).
std::span<const int> errorsOf(Operation operation) {
  static constexpr std::array kOfStatus = {EIO, EACCES, ENOMEM, EOVERFLOW, ETIMEDOUT};
  static constexpr std::array kOfOpening = {EIO,   EACCES, EMFILE, ENFILE, EROFS,
                                            EBUSY, ENOSPC, ENXIO,  EDQUOT, ENOMEM};
  static constexpr std::array kOfChanges = {EIO,    EACCES, EPERM,  EBUSY,     EROFS,
                                            ENOSPC, EXDEV,  EMLINK, ENOTEMPTY, ENOMEM};
  static constexpr std::array kOfReading = {EIO, EAGAIN, ENOMEM, ETIMEDOUT, ENXIO};
  static constexpr std::array kOfWriting = {EIO, ENOSPC, EDQUOT, EFBIG, EPERM, EAGAIN};
  static constexpr std::array kOfClosing = {EIO, ENOSPC, EDQUOT, EINTR};
  static constexpr std::array kOfListing = {EIO, EACCES, ENOMEM, EBADMSG};
  switch (operation) {
    case Operation::kStatus:
    case Operation::kReadLink: return kOfStatus;
    case Operation::kOpen:
    case Operation::kCreate: return kOfOpening;
    case Operation::kRead: return kOfReading;
    case Operation::kWrite:
    case Operation::kTruncate: return kOfWriting;
    case Operation::kClose: return kOfClosing;
    case Operation::kOpenFolder:
    case Operation::kReadFolder: return kOfListing;
    default: return kOfChanges;
  }
}

// A sequence of numbers that the program, the operation and the path determine.
class Dice {
 public:
  Dice(std::uint64_t seed, Operation operation, std::string_view path)
      : state_(mixed(seed) ^ static_cast<std::uint64_t>(operation)) {
    constexpr std::string_view kTemporary = ".tmp-";
    const std::size_t number = path.find(kTemporary);
    if (number != std::string_view::npos) path = path.substr(0, number + kTemporary.size());
    for (const char byte : path) state_ = mixed(state_ ^ static_cast<unsigned char>(byte));
  }

  std::uint64_t below(std::uint64_t limit) { return (state_ = mixed(state_)) % limit; }
  bool oneIn(std::uint64_t count) { return below(count) == 0; }

 private:
  std::uint64_t state_;
};

// A number of bytes from 1 on, small ones more often.
std::int64_t someBytes(Dice& dice) {
  constexpr std::uint64_t kMostBits = 17;
  const std::uint64_t bits = dice.below(kMostBits + 1);
  return static_cast<std::int64_t>(1 + dice.below(std::uint64_t{1} << bits));
}

void misTransfer(Fault& fault, Dice& dice) {
  switch (dice.below(4)) {
    case 0: fault.failsFrom = 0; break;
    case 1: fault.failsFrom = someBytes(dice); break;
    case 2: fault.most = static_cast<std::size_t>(someBytes(dice)); break;
    default: fault.interrupts = true; break;
  }
}

}  // namespace

// SplitMix64.
std::uint64_t mixed(std::uint64_t number) {
  number += 0x9e37'79b9'7f4a'7c15;
  number = (number ^ (number >> 30)) * 0xbf58'476d'1ce4'e5b9;
  number = (number ^ (number >> 27)) * 0x94d0'49bb'1331'11eb;
  return number ^ (number >> 31);
}

Fault faultOf(std::uint64_t seed, Operation operation, std::string_view path) {
  // One of so many pairs of an operation and a path is faulty: a quarter of the programs meets
  // delays only. A failing status hides every other fault of a path, so it is rare.
  static constexpr std::array<std::uint64_t, 4> kRarity = {0, 40, 12, 4};
  constexpr std::uint64_t kRarityOfStatus = 4;
  constexpr std::uint64_t kRarityOfDelays = 50;
  constexpr std::uint64_t kMostDelay = 3'000;

  Dice dice(seed, operation, path);
  Fault fault;
  if (dice.oneIn(kRarityOfDelays)) {
    fault.delayMicroseconds = static_cast<unsigned>(1 + dice.below(kMostDelay));
  }
  const bool isStatus = operation == Operation::kStatus;
  const std::uint64_t rarity =
      kRarity.at(mixed(seed) % kRarity.size()) * (isStatus ? kRarityOfStatus : 1);
  // The folder itself stays reachable, or a program would see nothing else.
  if (rarity == 0 || !dice.oneIn(rarity) || (isStatus && path == "folder")) return fault;

  const std::span<const int> errors = errorsOf(operation);
  fault.error = errors[dice.below(errors.size())];
  if (operation == Operation::kRead || operation == Operation::kWrite) {
    misTransfer(fault, dice);
  } else if (operation == Operation::kReadFolder) {
    constexpr std::uint64_t kEntries = 6;
    fault.failsFrom = static_cast<std::int64_t>(dice.below(kEntries));
  } else {
    fault.failsFrom = 0;
  }
  return fault;
}

Plan& mapPlan(const char* file) {
  const int descriptor = open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const bool isNew = descriptor >= 0 && lseek(descriptor, 0, SEEK_END) == 0;
  if (isNew && ftruncate(descriptor, sizeof(Plan)) != 0) std::perror(file);
  void* mapped = mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (mapped == MAP_FAILED) {
    std::perror(file);
    std::exit(1);
  }
  close(descriptor);
  return isNew ? *new (mapped) Plan : *static_cast<Plan*>(mapped);
}

}  // namespace quen::soak
