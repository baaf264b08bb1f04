#include "tests/interleavings/files.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "system/descriptor.h"
#include "tests/interleavings/explorer.h"

namespace quen::interleavings {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 17;
constexpr std::size_t kMostFiles = 8;
constexpr std::size_t kMostDescriptors = 32;
constexpr int kFirstDescriptor = 3;

struct File {
  std::array<char, 16> name{};
  std::size_t size = 0;
  int writes = 0;
  std::array<char, kMostBytes> bytes{};
};

// A number is never used again within a schedule, so that each use after the close is noticed.
struct Open {
  File* file = nullptr;
  bool isOpen = false;
};

std::array<File, kMostFiles> gFiles;
std::size_t gFileCount = 0;
std::array<Open, kMostDescriptors> gOpen;
std::size_t gOpenCount = 0;
Disk gDisk = Disk::kWorks;

File* find(std::string_view path) {
  for (std::size_t i = 0; i < gFileCount; ++i) {
    if (path == gFiles[i].name.data()) return &gFiles[i];
  }
  return nullptr;
}

// Files exist from the beginning of a schedule on, empty, so that their addresses do not depend on
// the order of the opens.
File& fileAt(std::string_view path) {
  if (File* file = find(path)) return *file;
  File& file = gFiles[gFileCount++];
  path.copy(file.name.data(), file.name.size() - 1);
  return file;
}

int openAt(std::string_view path, bool truncates) {
  File& file = fileAt(path);
  reach({Access::kFile, &file});
  if (truncates) file.size = 0;
  if (gOpenCount == kMostDescriptors) fail("too many descriptors for the explorer");
  gOpen[gOpenCount] = {&file, true};
  return static_cast<int>(gOpenCount++) + kFirstDescriptor;
}

Open& openOf(int number) {
  Open& open = gOpen.at(static_cast<std::size_t>(number - kFirstDescriptor));
  if (!open.isOpen) fail("use of a descriptor after its close");
  return open;
}

bool failsNow(const File& file) {
  return gDisk == Disk::kFull || (gDisk == Disk::kFailsOnce && file.writes == 1);
}

}  // namespace

void resetFiles(Disk disk) {
  for (File& file : gFiles) {
    file.size = 0;
    file.writes = 0;
  }
  gOpenCount = 0;
  gDisk = disk;
}

std::string_view bytesOf(std::string_view path) {
  const File* file = find(path);
  return file == nullptr ? std::string_view() : std::string_view(file->bytes.data(), file->size);
}

bool isAnyFileOpen() {
  return std::any_of(gOpen.begin(), gOpen.begin() + static_cast<std::ptrdiff_t>(gOpenCount),
                     [](const Open& open) { return open.isOpen; });
}

}  // namespace quen::interleavings

namespace quen::io {

using namespace quen::interleavings;

Descriptor Descriptor::openToReplace(const std::filesystem::path& path) {
  return Descriptor(openAt(path.native(), true));
}

Descriptor Descriptor::openToAppend(const std::filesystem::path& path) {
  return Descriptor(openAt(path.native(), false));
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (isOpen()) close();
}

Descriptor::Transfer Descriptor::write(std::string_view bytes) const {
  if (bytes.empty()) return {0, false};
  if (!isOpen()) return {0, true};  // EBADF
  File& file = *openOf(number_).file;
  reach({Access::kFile, &file});
  openOf(number_);
  ++file.writes;
  if (failsNow(file)) return {0, true};
  if (file.size + bytes.size() > kMostBytes) fail("too large a file for the explorer");
  bytes.copy(file.bytes.data() + file.size, bytes.size());
  file.size += bytes.size();
  return {bytes.size(), false};
}

bool Descriptor::close() {
  Open& open = openOf(std::exchange(number_, kNone));
  reach({Access::kFile, open.file});
  open.isOpen = false;
  return true;
}

}  // namespace quen::io
