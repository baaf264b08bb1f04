#include "system/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "system/cancellation.h"

namespace fs = std::filesystem;

namespace quen::io {

namespace {

static_assert(sizeof(off_t) == sizeof(std::int64_t), "offsets have 64 bits");

// Repeats a system call that fails with EINTR.
template <class Call>
auto uninterrupted(const Call& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

int openFile(const fs::path& path, int flags) {
  constexpr mode_t kReadableAndWritable = 0666;  // minus the umask, as with fopen(3)
  return uninterrupted(
      [&] { return ::open(path.c_str(), flags | O_CLOEXEC, kReadableAndWritable); });
}

}  // namespace

Descriptor Descriptor::openToRead(const fs::path& path) {
  return Descriptor(openFile(path, O_RDONLY));
}

Descriptor Descriptor::openToReplace(const fs::path& path) {
  return Descriptor(openFile(path, O_WRONLY | O_CREAT | O_TRUNC));
}

// Like fopen(3) with "a", seeks to the end, and fails if that fails, unless the file is not
// seekable (ESPIPE). On some kernel files, such as /proc/self/comm, the seek fails with EINVAL.
Descriptor Descriptor::openToAppend(const fs::path& path) {
  const int number = openFile(path, O_WRONLY | O_CREAT | O_APPEND);
  if (number == kNone || ::lseek(number, 0, SEEK_END) != -1 || errno == ESPIPE) {
    return Descriptor(number);
  }
  Descriptor(number).close();
  return {};
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (isOpen()) close();
}

bool Descriptor::seek(std::int64_t offset) const {
  return ::lseek(number_, offset, SEEK_SET) != -1;
}

std::size_t Descriptor::claimedSize() const {
  struct stat status {};
  if (::fstat(number_, &status) != 0) return 0;
  return memorySize(status.st_size);
}

Descriptor::Transfer Descriptor::read(std::span<char> bytes) const {
  std::size_t count = 0;
  while (count < bytes.size()) {
    const ssize_t result =
        uninterrupted([&] { return ::read(number_, bytes.data() + count, bytes.size() - count); });
    if (result == -1) return {count, true};
    if (result == 0) break;
    count += static_cast<std::size_t>(result);
  }
  return {count, false};
}

// A write(2) that returns 0 counts as failed; repeating it could loop forever.
Descriptor::Transfer Descriptor::write(std::string_view bytes) const {
  std::size_t count = 0;
  while (count < bytes.size()) {
    const ssize_t result =
        uninterrupted([&] { return ::write(number_, bytes.data() + count, bytes.size() - count); });
    if (result <= 0) return {count, true};
    count += static_cast<std::size_t>(result);
  }
  return {count, false};
}

// close is a cancellation point (pthreads(7)). Cancellation there would leak the descriptor, and
// the forced unwind would terminate the process when it leaves a destructor, which is noexcept.
bool Descriptor::close() {
  const WithoutCancellation protect;
  return ::close(std::exchange(number_, kNone)) == 0;
}

}  // namespace quen::io
