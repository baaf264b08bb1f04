#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/process_state.h"
#include "tests/support/sanitized.h"
#include "tests/support/system_calls.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class ReadBytes : public BoundaryTest {
 protected:
  // The bytes stored in a Byte[] of length `count`.
  static std::string read(const fs::path& path, std::int64_t position, std::int64_t count) {
    void* destination = newByteArray(static_cast<std::size_t>(count));
    const std::int64_t stored =
        quen_io_FileInputStream__readBytesPath(path.c_str(), position, destination, count);
    const std::vector<std::uint8_t> bytes = byteArrayContents(destination);
    EXPECT_LE(stored, count);
    return {bytes.begin(), bytes.begin() + stored};
  }

  const fs::path file = scratch.file("file", "0123456789");
};

TEST_F(ReadBytes, StoresBytesFromThePositionOn) {
  EXPECT_EQ(read(file, 0, 10), "0123456789");
  EXPECT_EQ(read(file, 0, 3), "012");
  EXPECT_EQ(read(file, 6, 100), "6789");
  EXPECT_EQ(read(file, 9, 1), "9");
}

TEST_F(ReadBytes, CountsANegativePositionAsZero) {
  EXPECT_EQ(read(file, -1, 2), "01");
  EXPECT_EQ(read(file, INT64_MIN, 2), "01");
}

TEST_F(ReadBytes, StoresNothingAtTheEndAndLeavesTheDestinationAlone) {
  for (const std::int64_t position : {std::int64_t{10}, std::int64_t{11}, std::int64_t{1} << 40}) {
    void* destination = newByteArray({7, 7});
    EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), position, destination, 2), 0);
    EXPECT_EQ(byteArrayContents(destination), (std::vector<std::uint8_t>{7, 7}));
  }
  EXPECT_EQ(read(scratch.file("empty"), 0, 5), "");
}

TEST_F(ReadBytes, KeepsBytesAsTheyAre) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);

  EXPECT_EQ(read(scratch.file("all", all), 0, 256), all);
}

TEST_F(ReadBytes, DoesNotOpenTheFileForACountBelowOne) {
  for (const std::int64_t count : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
    EXPECT_EQ(quen_io_FileInputStream__readBytesPath(nullptr, 0, nullptr, count), 0);
    EXPECT_EQ(quen_io_FileInputStream__readBytesPath("/nowhere", 0, nullptr, count), 0);
  }
}

TEST_F(ReadBytes, RaisesForAnEmptyPath) {
  for (const char* empty : {"", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(quen_io_FileInputStream__readBytesPath(empty, 0, newByteArray(1), 1), 0);
    EXPECT_EQ(raised(), "IOException: File path is empty");
  }
}

TEST_F(ReadBytes, RaisesForWhatCannotBeOpenedBeforeALookAtTheDestination) {
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath("/nowhere", 0, nullptr, 1), 0);
  EXPECT_EQ(raised(), "IOException: Cannot open file");

  fs::permissions(scratch.path(), fs::perms::all);
  fs::permissions(file, fs::perms::none);
  inUnprivilegedChild([this] {
    EXPECT_EQ(read(file, 0, 1), "");
    EXPECT_EQ(raised(), "IOException: Cannot open file");
  });
}

// The test holds the FIFO open for reading and writing, so that opening it does not block.
TEST_F(ReadBytes, RaisesForAPipeWhichCannotSeek) {
  const fs::path fifo = scratch / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int bothEnds = open(fifo.c_str(), O_RDWR);
  ASSERT_NE(bothEnds, -1);

  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(fifo.c_str(), 0, newByteArray(1), 1), 0);
  EXPECT_EQ(raised(), "IOException: Cannot seek in file");
  close(bothEnds);
}

TEST_F(ReadBytes, RaisesForADirectory) {
  EXPECT_EQ(read(scratch.path(), 0, 5), "");
  EXPECT_EQ(raised(), "IOException: Failed to read file");
}

TEST_F(ReadBytes, RaisesForADestinationOfAnotherClassOnlyWhenBytesWereRead) {
  void* path = newPath("a");

  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 0, path, 5), 0);
  EXPECT_EQ(raised(), "TypeError: Expected Byte[] but got quen.io.Path");
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 0, nullptr, 5), 0);
  EXPECT_EQ(raised(), "TypeError: Expected Byte[] but got null");
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 10, path, 5), 0);
  EXPECT_EQ(raised(), "");
}

TEST_F(ReadBytes, RaisesForADestinationThatIsTooShort) {
  void* destination = newByteArray({7, 7});

  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(file.c_str(), 0, destination, 3), 0);
  EXPECT_EQ(raised(), "TypeError: Byte[] of length 2 cannot hold 3 bytes");
  EXPECT_EQ(byteArrayContents(destination), (std::vector<std::uint8_t>{7, 7}));
}

TEST_F(ReadBytes, ReadsFarInAHugeSparseFile) {
  const fs::path sparse = scratch.file("sparse");
  fs::resize_file(sparse, std::uintmax_t{1} << 40);

  EXPECT_EQ(read(sparse, (std::int64_t{1} << 40) - 3, 10), std::string(3, '\0'));
}

// std::bad_alloc passes through the entry point; the boundary does not define how it is reported.
TEST_F(ReadBytes, ThrowsBadAllocForACountTooLargeToAllocate) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer ends the process instead";

  EXPECT_THROW(quen_io_FileInputStream__readBytesPath(file.c_str(), 0, nullptr, INT64_MAX),
               std::bad_alloc);
}

// A device answers 0 to every seek, which is no failure.
TEST_F(ReadBytes, ReadsDevicesFromAnyPosition) {
  EXPECT_EQ(read("/dev/zero", 100, 10), std::string(10, '\0'));
  EXPECT_EQ(read("/dev/full", 100, 10), std::string(10, '\0'));
  EXPECT_EQ(read("/dev/null", 100, 10), "");
  EXPECT_EQ(read("/dev/urandom", 100, 10).size(), 10u);
  EXPECT_EQ(raised(), "");
}

TEST_F(ReadBytes, RaisesForADefectWhateverCameBeforeIt) {
  for (const std::size_t delivered : {std::size_t{0}, std::size_t{3}}) {
    const FailingRead defect(delivered);
    EXPECT_EQ(read(file, 0, 10), "");
    EXPECT_EQ(raised(), "IOException: Failed to read file");
  }
}

TEST_F(ReadBytes, ClosesTheFileOnExec) {
  const BeforeCall reading(SystemCall::kRead,
                           [this] { EXPECT_EQ(descriptorsKeptOnExec(file), 0); });
  EXPECT_EQ(read(file, 6, 4), "6789");
}

}  // namespace
