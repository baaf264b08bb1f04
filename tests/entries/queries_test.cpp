#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/standard_library.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

// The answers of all queries about one path; each method has to agree with its getter.
struct Answers {
  bool exists = false;
  bool regular = false;
  bool directory = false;
  bool symlink = false;
  std::int64_t size = 0;

  bool operator==(const Answers&) const = default;
};

void PrintTo(const Answers& answers, std::ostream* out) {
  *out << "exists " << answers.exists << ", regular " << answers.regular << ", directory "
       << answers.directory << ", symlink " << answers.symlink << ", size " << answers.size;
}

Answers ask(const fs::path& path) {
  void* self = newPath(path.native());
  const char* text = path.c_str();
  const Answers methods{quen_io_Path__exists(self), quen_io_Path__isRegular(self),
                        quen_io_Path__isDirectory(self), quen_io_Path__isSymlink(self),
                        quen_io_Path__size(self)};
  const Answers getters{
      __quen_propget_quen_io_Path_exists(self), __quen_propget_quen_io_Path_isRegular(self),
      __quen_propget_quen_io_Path_isDirectory(self), __quen_propget_quen_io_Path_isSymlink(self),
      __quen_propget_quen_io_Path_size(self)};

  EXPECT_EQ(getters, methods);
  EXPECT_EQ(quen_io_FileInputStream__existsPath(text), methods.exists);
  EXPECT_EQ(quen_io_FileInputStream__isRegularPath(text), methods.regular);
  EXPECT_EQ(quen_io_FileInputStream__sizePath(text), methods.size);
  return methods;
}

void makeSocket(const fs::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.native().size(), sizeof address.sun_path);
  path.native().copy(address.sun_path, path.native().size());
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(socketDescriptor);
}

class Queries : public BoundaryTest {};

TEST_F(Queries, TellAFileAFolderAndWhatIsMissing) {
  EXPECT_EQ(ask(scratch.file("file", "12345")), (Answers{true, true, false, false, 5}));
  EXPECT_EQ(ask(scratch.file("empty")), (Answers{true, true, false, false, 0}));
  EXPECT_EQ(ask(scratch.folder("folder")), (Answers{true, false, true, false, 0}));
  EXPECT_EQ(ask(scratch / "missing"), (Answers{}));
  EXPECT_EQ(ask(scratch / "file/below"), (Answers{}));
}

TEST_F(Queries, FollowALinkForEverythingButTheLinkItself) {
  EXPECT_EQ(ask(scratch.link("to-file", scratch.file("file", "12345"))),
            (Answers{true, true, false, true, 5}));
  EXPECT_EQ(ask(scratch.link("to-folder", scratch.path())), (Answers{true, false, true, true, 0}));
  EXPECT_EQ(ask(scratch.link("dangling", "nowhere")), (Answers{false, false, false, true, 0}));
  EXPECT_EQ(ask(scratch.link("loop", scratch / "loop")), (Answers{false, false, false, true, 0}));
}

TEST_F(Queries, KnowNoKindAndNoSizeOfOtherEntries) {
  const fs::path fifo = scratch / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  makeSocket(scratch / "socket");

  EXPECT_EQ(ask("/dev/null"), (Answers{true, false, false, false, 0}));
  EXPECT_EQ(ask(fifo), (Answers{true, false, false, false, 0}));
  EXPECT_EQ(ask(scratch / "socket"), (Answers{true, false, false, false, 0}));
  EXPECT_EQ(ask("/proc/self/status"), (Answers{true, true, false, false, 0}));
}

TEST_F(Queries, KnowTheSizeOfASparseFile) {
  const fs::path sparse = scratch.file("sparse");
  constexpr std::int64_t kTebibyte = std::int64_t{1} << 40;
  fs::resize_file(sparse, kTebibyte);

  EXPECT_EQ(ask(sparse), (Answers{true, true, false, false, kTebibyte}));
}

TEST_F(Queries, AnswerForNamesOfAnyBytes) {
  for (const std::string name : {"\xFF\xFE", "new\nline", "\x1B[31m", " ", "..."}) {
    EXPECT_EQ(ask(scratch.file(name, "x")), (Answers{true, true, false, false, 1})) << name;
  }
  EXPECT_EQ(ask(scratch.file(std::string(255, 'n'), "x")), (Answers{true, true, false, false, 1}));
  EXPECT_EQ(ask(scratch / std::string(256, 'n')), (Answers{}));
  EXPECT_EQ(ask(std::string(10'000, 'p')), (Answers{}));
}

TEST_F(Queries, AnswerNothingBehindAFolderThatMayNotBeSearched) {
  fs::permissions(scratch.path(), fs::perms::all);
  const fs::path file = scratch.folder("closed") / "file";
  scratch.file("closed/file", "x");
  fs::permissions(scratch / "closed", fs::perms::none);

  inUnprivilegedChild([&] {
    EXPECT_EQ(ask(file), (Answers{}));
    EXPECT_EQ(quen_io_Path__lastModified(newPath(file.native())), 0);
    EXPECT_EQ(raised(), "");
  });
  fs::permissions(scratch / "closed", fs::perms::owner_all);
}

using AnyQuery = BoundaryTest;

TEST_F(AnyQuery, OfAnEmptyPathIsNeutral) {
  EXPECT_EQ(ask(""), (Answers{}));
  EXPECT_EQ(quen_io_Path__lastModified(newPath("")), 0);
  EXPECT_EQ(__quen_propget_quen_io_Path_lastModified(newPath("")), 0);
  EXPECT_FALSE(quen_io_FileInputStream__existsPath(nullptr));
  EXPECT_FALSE(quen_io_FileInputStream__isRegularPath(nullptr));
  EXPECT_EQ(quen_io_FileInputStream__sizePath(nullptr), 0);
}

TEST_F(AnyQuery, OfAnObjectWithoutPathIsNeutral) {
  void* none = newObject("quen.io.Path");

  EXPECT_FALSE(quen_io_Path__exists(none));
  EXPECT_FALSE(quen_io_Path__isRegular(none));
  EXPECT_FALSE(quen_io_Path__isSymlink(newString("no path")));
}

TEST_F(AnyQuery, OfANullReceiverIsNeutralButForExists) {
  EXPECT_FALSE(quen_io_Path__isRegular(nullptr));
  EXPECT_FALSE(__quen_propget_quen_io_Path_isRegular(nullptr));
  EXPECT_FALSE(quen_io_Path__isDirectory(nullptr));
  EXPECT_FALSE(__quen_propget_quen_io_Path_isDirectory(nullptr));
  EXPECT_FALSE(quen_io_Path__isSymlink(nullptr));
  EXPECT_FALSE(__quen_propget_quen_io_Path_isSymlink(nullptr));
  EXPECT_EQ(quen_io_Path__size(nullptr), 0);
  EXPECT_EQ(__quen_propget_quen_io_Path_size(nullptr), 0);
  EXPECT_EQ(quen_io_Path__lastModified(nullptr), 0);
  EXPECT_EQ(__quen_propget_quen_io_Path_lastModified(nullptr), 0);
}

using Exists = BoundaryTest;

TEST_F(Exists, RaisesForANullReceiver) {
  for (const auto exists : {quen_io_Path__exists, __quen_propget_quen_io_Path_exists}) {
    EXPECT_FALSE(exists(nullptr));
    EXPECT_EQ(raised(), "NullException: Cannot read Path.exists on null");
  }
}

struct Time {
  std::int64_t seconds;
  long nanoseconds;           // the type of tv_nsec
  std::int64_t milliseconds;  // truncated towards zero
};

// Converting from the file clock reads two clocks, one after the other, which may cost a
// millisecond.
void expectTime(const Time& time, std::int64_t answer) {
  EXPECT_LE(answer, time.milliseconds);
  EXPECT_GE(answer, time.milliseconds - 1);
}

using LastModified = BoundaryTest;

TEST_F(LastModified, IsInMillisecondsSince1970CutOffAndNeverRoundedUp) {
  const fs::path file = scratch.file("file");
  const std::vector<Time> times{
      {1, 999'600'000, 1999},
      {0, 0, 0},
      {1'700'000'000, 123'999'999, 1'700'000'000'123},
      {2'000'000'000, 500'000'000, 2'000'000'000'500},
      {1'700'000'000, 0, 1'700'000'000'000},
  };
  for (const Time& time : times) {
    SCOPED_TRACE(time.milliseconds);
    const timespec stamps[2] = {{0, 0}, {time.seconds, time.nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), stamps, 0), 0);

    expectTime(time, quen_io_Path__lastModified(newPath(file.native())));
    expectTime(time, __quen_propget_quen_io_Path_lastModified(newPath(file.native())));
  }
}

// -1.5 ms is truncated to -1, not rounded down to -2.
TEST_F(LastModified, BeforeThatIsNegativeAndCutOffTowardsIt) {
  const fs::path file = scratch.file("file");
  const timespec stamps[2] = {{0, 0}, {-1, 998'500'000}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), stamps, 0), 0);
  struct stat entry {};
  ASSERT_EQ(stat(file.c_str(), &entry), 0);
  if (entry.st_mtim.tv_sec != -1) GTEST_SKIP() << "this file system has no times before 1970";

  EXPECT_EQ(quen_io_Path__lastModified(newPath(file.native())), -1);
}

// The library answers EOVERFLOW for a time that 64 bits of nanoseconds do not express. What the
// file system cannot express, it has replaced by a time that it can.
TEST_F(LastModified, IsExactFrom1678To2262AndZeroAfterwards) {
  if (k32Bits) GTEST_SKIP() << "the C++ library has times from 1901 to 2038 only";
  const fs::path file = scratch.file("file");
  constexpr std::int64_t kEnd = 9'223'372'036;  // 2262-04-11, in seconds since 1970
  constexpr std::int64_t kYear1800 = -5'364'662'400;
  constexpr std::int64_t kYear1900 = -2'208'988'800;
  constexpr std::int64_t kYear2106 = 4'294'967'296;  // the first that 32 bits do not express
  constexpr std::int64_t kYear9999 = 253'370'764'800;
  for (const std::int64_t second :
       {-kEnd, kYear1800, kYear1900, std::int64_t{-1}, kYear2106, kEnd - 1, kEnd, kYear9999}) {
    SCOPED_TRACE(second);
    const timespec stamps[2] = {{0, 0}, {second, 250'000'000}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), stamps, 0), 0);
    struct stat entry {};
    ASSERT_EQ(stat(file.c_str(), &entry), 0);
    const timespec& set = entry.st_mtim;

    const std::int64_t answer = quen_io_Path__lastModified(newPath(file.native()));
    if (set.tv_sec < kEnd) {
      expectTime({set.tv_sec, set.tv_nsec, set.tv_sec * 1'000 + set.tv_nsec / 1'000'000}, answer);
    } else if (kLibcxx) {  // which expresses it with 128 bits, of which the result has the lower 64
      const auto seconds = static_cast<std::uint64_t>(set.tv_sec);
      const std::uint64_t wrapped =
          seconds * 1'000'000'000 + static_cast<std::uint64_t>(set.tv_nsec);
      const std::int64_t nanoseconds = static_cast<std::int64_t>(wrapped);
      expectTime({set.tv_sec, set.tv_nsec, nanoseconds / 1'000'000}, answer);
    } else {
      EXPECT_EQ(answer, 0);
    }
  }
}

TEST_F(LastModified, IsTheTargetsBehindALinkAndAFoldersOwn) {
  const fs::path folder = scratch.folder("folder");
  const timespec stamps[2] = {{0, 0}, {1'000, 500'000'000}};
  ASSERT_EQ(utimensat(AT_FDCWD, folder.c_str(), stamps, 0), 0);

  const Time time{1'000, 500'000'000, 1'000'500};
  expectTime(time, quen_io_Path__lastModified(newPath(folder.native())));
  expectTime(time, quen_io_Path__lastModified(newPath(scratch.link("link", folder).native())));
}

TEST_F(LastModified, IsZeroForWhatCannotBeAsked) {
  EXPECT_EQ(quen_io_Path__lastModified(newPath((scratch / "missing").native())), 0);
  EXPECT_EQ(quen_io_Path__lastModified(newPath(scratch.link("dangling", "nowhere").native())), 0);
}

}  // namespace
