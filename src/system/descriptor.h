// An open file of the operating system. Private to the module.
//
// Files are opened with the flags of std::filebuf and O_CLOEXEC. System calls that fail with EINTR
// are repeated, except close: Linux releases the descriptor even then, and another thread may
// already have reused its number (close(2), "Dealing with error returns from close()").
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <span>
#include <string_view>

namespace quen::io {

// A size as one of memory. One that is too large for 32 bits becomes the largest, for which there
// is never enough memory.
constexpr std::size_t memorySize(std::int64_t size) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::size_t>::max();
  return std::min(static_cast<std::uint64_t>(size), kLargest);
}

class Descriptor {
 public:
  // The bytes transferred. A short read without a failure means end of file.
  struct Transfer {
    std::size_t count;
    bool failed;
  };

  // Check isOpen() for success. Opening for writing creates a missing file.
  static Descriptor openToRead(const std::filesystem::path& path);
  static Descriptor openToReplace(const std::filesystem::path& path);
  static Descriptor openToAppend(const std::filesystem::path& path);

  // Nothing is open.
  Descriptor() = default;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  // Closes. A failure to close is ignored.
  ~Descriptor();

  bool isOpen() const { return number_ != kNone; }

  // Sets the file offset, which may be beyond the end. Only -1 from lseek(2) is a failure:
  // character devices such as /dev/zero return 0 for every offset.
  bool seek(std::int64_t offset) const;

  // st_size, and 0 if it is unknown. It is only a hint: the file may change, a FUSE file system may
  // report any size, and procfs reports 0 for files with contents.
  std::size_t claimedSize() const;

  // Reads until `bytes` is full, end of file or a failure.
  Transfer read(std::span<char> bytes) const;

  // Calls write(2) until all bytes are written or it fails.
  Transfer write(std::string_view bytes) const;

  // Closes, and tells whether the system reported no failure. Nothing is open afterwards.
  bool close();

 private:
  static constexpr int kNone = -1;

  explicit Descriptor(int number) : number_(number) {}

  int number_ = kNone;
};

}  // namespace quen::io
