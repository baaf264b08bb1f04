// Every operation on unusual entries: odd names, long paths, links, pipes, devices, files of /proc.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/disks/every_operation.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/limits.h"
#include "tests/support/process_state.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

class OddEntries : public BoundaryTest {
 protected:
  // Creates a new entry in an empty folder for each call.
  void expectOfEntry(const std::function<void(const fs::path&)>& make, const Outcomes& expected) {
    expectOutcomes(
        here,
        [&] {
          fs::remove_all(here);
          fs::create_directory(here);
          make(here / "entry");
          return here / "entry";
        },
        expected);
  }

  void expectOfFile(const fs::path& file, const Outcomes& expected) {
    expectOutcomes(
        file.parent_path(),
        [&file] {
          fs::remove(file.parent_path() / "renamed");
          fs::remove_all(file);
          std::ofstream(file) << "old";
          EXPECT_EQ(contents(file), "old");
          return file;
        },
        expected);
  }

  const fs::path here = scratch.folder("here");
};

// Names and paths.

TEST_F(OddEntries, WithNamesOfAnyBytesAreOrdinary) {
  for (const std::string name :
       {"\xFF\xFE", "\xC3", "two\nlines", "\x1B[31mred\x1B[0m", "\r", "\t", " ", "-rf", "...", "\\",
        "*", "~", "\"'", "%s%n", "\x7F", "\xE2\x80\xAE"}) {
    SCOPED_TRACE(name);
    expectOfFile(here / name, ordinary());
    fs::remove(here / "renamed");

    scratch.file("here/" + name);
    EXPECT_EQ(listStrings(quen_io_FolderPath__listNamesNative(here.c_str())),
              std::vector<std::string>{name});
    fs::remove(here / name);
  }
}

// The temporary file of an index has a longer name, which exceeds NAME_MAX.
TEST_F(OddEntries, WithTheLongestNameAreOrdinaryButForAnIndex) {
  Outcomes expected = ordinary();
  expected.publish = unreachable().publish;

  expectOfFile(here / std::string(NAME_MAX, 'n'), expected);
}

TEST_F(OddEntries, WithATooLongNameCannotBeReached) {
  expectOutcomes(
      scratch.path(), [this] { return here / std::string(NAME_MAX + 1, 'n'); }, unreachable());
}

TEST_F(OddEntries, CannotBeRenamedToATooLongName) {
  const std::string file = scratch.file("here/file", "kept");
  void* path = newPath(file);

  quen_io_Path_rename(path, std::string(NAME_MAX + 1, 'n').c_str());
  EXPECT_EQ(raised(), "IOException: Cannot rename path");
  EXPECT_EQ(pathText(path), file);
  EXPECT_EQ(contents(file), "kept");

  quen_io_Path_rename(path, std::string(NAME_MAX, 'n').c_str());
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(namesIn(here), std::string(NAME_MAX, 'n'));
}

// PATH_MAX counts the terminating NUL.
constexpr std::size_t kLongestPath = PATH_MAX - 1;

// A path below the folder with exactly this length, whose names are all short. Its parent does not
// exist.
fs::path pathOfLength(const fs::path& folder, std::size_t length) {
  std::string path = folder;
  while (length - path.size() > 201) path += '/' + std::string(99, 'd');
  path += '/';
  return path + std::string(length - path.size(), 'f');
}

TEST_F(OddEntries, OfTheLongestPathAreOrdinaryButForAnIndex) {
  const fs::path file = pathOfLength(here, kLongestPath);
  fs::create_directories(file.parent_path());
  Outcomes expected = ordinary();
  expected.publish = unreachable().publish;

  expectOfFile(file, expected);
}

TEST_F(OddEntries, OfATooLongPathCannotBeReached) {
  for (const std::size_t length : {kLongestPath + 1, kLongestPath + 2, 10 * kLongestPath}) {
    SCOPED_TRACE(length);
    const fs::path path = pathOfLength(here, length);
    fs::create_directories(pathOfLength(here, kLongestPath - 300).parent_path());

    expectOutcomes(
        scratch.path(), [&path] { return path; }, unreachable());
  }
}

// fs::remove_all opens each folder relative to its parent (openat), so PATH_MAX does not apply.
TEST_F(OddEntries, BelowTheLongestPathAreRemovedWithTheirTree) {
  const std::string name(200, 'd');
  inChild([&] {
    fs::current_path(scratch.folder("here/tree"));
    for (int depth = 0; depth < 40; ++depth) {
      fs::create_directory(name);
      fs::current_path(name);
    }
    std::ofstream("file") << "deep";
  });
  const auto before = openFiles();

  quen_io_FolderPath__removeAllNative((here / "tree").c_str());

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(namesIn(here), "");
  EXPECT_EQ(openFiles(), before);
}

// Links.

// Writers create the target of the link, whereas the rename of an index replaces the link itself.
TEST_F(OddEntries, ThatAreDanglingLinksLetWritersMakeTheTarget) {
  Outcomes expected = unreachable();
  expected.entry = "link to nothing";
  expected.truncate = "";
  expected.replace = expected.append = expected.publish = "new";
  expected.touch = "link to file of 0 bytes";
  expected.remove = expected.removeAll = "gone";
  expected.rename = "moved";

  expectOfEntry([](const fs::path& path) { fs::create_symlink("target", path); }, expected);
}

TEST_F(OddEntries, ThatAreLinksToThemselvesCanOnlyBeRemovedOrReplaced) {
  Outcomes expected = unreachable();
  expected.entry = "link to nothing";
  expected.publish = "new";
  expected.remove = expected.removeAll = "gone";
  expected.rename = "moved";

  expectOfEntry([](const fs::path& path) { fs::create_symlink("entry", path); }, expected);
}

TEST_F(OddEntries, BehindALoopOfLinksCannotBeReached) {
  scratch.link("here/one", "two");
  scratch.link("here/two", "one");

  expectOutcomes(
      scratch.path(), [this] { return here / "one" / "below"; }, unreachable());

  EXPECT_EQ(namesIn(here), "one two");
}

// Sockets, devices, pipes.

Outcomes ofWhatIsNeitherFileNorFolder() {
  Outcomes expected = ordinary();
  expected.entry = expected.touch = "other";
  expected.text = expected.prefix = expected.bytes = "";
  expected.truncate = expected.replace = expected.append = "no file";
  return expected;
}

// In the folder itself, because sun_path holds only 108 bytes.
void makeSocket(const fs::path& path) {
  inChild([&path] {
    fs::current_path(path.parent_path());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.filename().native().copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  });
}

TEST_F(OddEntries, ThatAreSocketsCannotBeOpened) {
  const Outcomes unopened = unreachable();
  Outcomes expected = ofWhatIsNeitherFileNorFolder();
  expected.text = unopened.text;
  expected.prefix = unopened.prefix;
  expected.bytes = unopened.bytes;
  expected.truncate = unopened.truncate;
  expected.replace = unopened.replace;
  expected.append = unopened.append;

  expectOfEntry(makeSocket, expected);
}

// A device node of the test's own with the numbers of /dev/null.
TEST_F(OddEntries, ThatAreDevicesTakeTextsAndAreReplacedByAnIndex) {
  const dev_t null = makedev(1, 3);
  if (mknod((scratch / "probe").c_str(), S_IFCHR | 0600, null) != 0) {
    GTEST_SKIP() << "device nodes cannot be created here: " << std::strerror(errno);
  }
  if (access((scratch / "probe").c_str(), R_OK) != 0 || !std::ifstream(scratch / "probe")) {
    GTEST_SKIP() << "device nodes cannot be opened on this file system";
  }

  expectOfEntry(
      [=](const fs::path& path) { ASSERT_EQ(mknod(path.c_str(), S_IFCHR | 0600, null), 0); },
      ofWhatIsNeitherFileNorFolder());
}

// A FIFO that the test holds open for reading and writing, so that no open blocks (fifo(7)).
class Pipe {
 public:
  explicit Pipe(const fs::path& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    both_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_NE(both_, -1);
  }
  ~Pipe() { close(both_); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void put(const std::string& bytes) const {
    EXPECT_EQ(write(both_, bytes.data(), bytes.size()), std::ssize(bytes));
  }

  // The bytes written into the pipe so far.
  std::string taken() const {
    std::array<char, 4096> bytes;
    const ssize_t count = read(both_, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  int both_;
};

TEST_F(OddEntries, ThatArePipesTakeTextsAndCannotSeek) {
  const Watchdog watchdog;
  std::optional<Pipe> pipe;
  Outcomes expected = ofWhatIsNeitherFileNorFolder();
  expected.text = expected.prefix = std::nullopt;  // would block
  expected.bytes = "IOException: Cannot seek in file";

  expectOfEntry([&](const fs::path& path) { pipe.emplace(path); }, expected);
}

TEST_F(OddEntries, ThatArePipesReceiveEveryByteAndLoseOnlyThePrefixThatIsRead) {
  const Watchdog watchdog;
  const Pipe pipe(here / "pipe");
  for (const auto& operation : everyOperation()) {
    SCOPED_TRACE(operation.name);
    if (!operation.writesText()) continue;
    EXPECT_EQ(operation.call(here / "pipe", kNew), "no file");
    EXPECT_EQ(pipe.taken(), "new");
  }

  pipe.put("0123456789");
  EXPECT_EQ(text(quen_io_FileReader__readPrefixPath((here / "pipe").c_str(), 4)), "0123");
  EXPECT_EQ(pipe.taken(), "456789") << "no further byte was read";
}

// A thread writes into the pipe and closes it, which is the end of file.
TEST_F(OddEntries, ThatArePipesAreReadToTheirEnd) {
  const Watchdog watchdog;
  const fs::path pipe = here / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& operation : everyOperation()) {
    if (operation.group != &Outcomes::text && operation.group != &Outcomes::prefix) continue;
    SCOPED_TRACE(operation.name);
    const auto before = openFiles();

    std::jthread writer([&pipe] { std::ofstream(pipe) << "from the pipe"; });
    EXPECT_EQ(operation.call(pipe, kNew), "from the pipe");
    writer.join();

    EXPECT_EQ(openFiles(), before);
  }
}

// Files that the kernel generates. They are only read.

TEST_F(OddEntries, OfSizeZeroInProcAreReadWhole) {
  const std::string version = contents("/proc/version");
  ASSERT_GT(version.size(), 0U);
  const std::string start = version.substr(0, kReadAtMost);

  expectOutcomes(here, [] { return "/proc/version"; },
                 {.entry = "file of 0 bytes", .text = version, .prefix = start, .bytes = start});
}

// The file changes between two reads, so only its stable parts are compared.
TEST_F(OddEntries, InProcSelfCanBeReadFromAnOffset) {
  const char* status = "/proc/self/status";
  const std::string line = "\nPid:\t" + std::to_string(getpid()) + '\n';

  const std::string whole = text(quen_io_FileReader__readAllTextPath(status));
  EXPECT_TRUE(whole.starts_with("Name:\t"));
  EXPECT_NE(whole.find(line), std::string::npos);

  const std::string rest = text(quen_io_FileInputStream__readTextFromOffsetPath(status, 6));
  EXPECT_EQ(rest.substr(0, 10), whole.substr(6, 10));
  void* bytes = newByteArray(4);
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(status, 1, bytes, 4), 4);
  EXPECT_EQ(byteArrayContents(bytes), (std::vector<std::uint8_t>{'a', 'm', 'e', ':'}));
  EXPECT_EQ(quen_io_FileInputStream__readBytesPath(status, 1'000'000, bytes, 4), 0);
}

// Files in /sys report the size of a page, whatever they contain.
TEST_F(OddEntries, WithLessContentThanTheirSizeAreReadWhole) {
  const fs::path file = "/sys/devices/system/cpu/online";
  if (!fs::exists(file)) GTEST_SKIP() << "there is no " << file << " here";
  const std::string content = contents(file);
  const std::string size = std::to_string(fs::file_size(file));
  ASSERT_LT(content.size(), fs::file_size(file));

  expectOutcomes(here, [&file] { return file; },
                 {.entry = "file of " + size + " bytes",
                  .text = content,
                  .prefix = content,
                  .bytes = content});
}

// Address 0 is not mapped, so reading /proc/self/mem from its start fails with EIO. The whole-file
// readers do not check for read errors and return the empty text.
TEST_F(OddEntries, ThatCannotBeReadFail) {
  expectOutcomes(here, [] { return "/proc/self/mem"; },
                 {.text = "",
                  .prefix = "IOException: Failed to read file",
                  .bytes = "IOException: Failed to read file"});
}

// Sparse files.

constexpr std::int64_t kTebibyte = std::int64_t{1} << 40;

// Whole-file readers are left out: the text would not fit into memory.
class HugeFiles : public OddEntries {
 protected:
  void SetUp() override {
    std::error_code error;
    fs::resize_file(huge, kTebibyte, error);
    if (error) GTEST_SKIP() << "no file of 1 TiB on this file system: " << error.message();
  }

  static std::string bytesFrom(const fs::path& file, std::int64_t position) {
    void* destination = newByteArray(10);
    const std::int64_t count =
        quen_io_FileInputStream__readBytesPath(file.c_str(), position, destination, 10);
    const std::vector<std::uint8_t> bytes = byteArrayContents(destination);
    return {bytes.begin(), bytes.begin() + count};
  }

  const fs::path huge = scratch.file("here/huge");
};

TEST_F(HugeFiles, AreReadAtBothEnds) {
  const std::string size = std::to_string(kTebibyte);
  const std::string zeros(kReadAtMost, '\0');

  expectOutcomes(here, [this] { return huge; },
                 {.entry = "file of " + size + " bytes",
                  .prefix = zeros,
                  .bytes = zeros,
                  .touch = "file of " + size + " bytes"});

  EXPECT_EQ(bytesFrom(huge, kTebibyte - 3), std::string(3, '\0'));
  EXPECT_EQ(bytesFrom(huge, kTebibyte), "");
}

TEST_F(HugeFiles, AreAppendedToAtTheirEnd) {
  std::int64_t size = kTebibyte;
  for (const auto& operation : everyOperation()) {
    if (operation.group != &Outcomes::append) continue;
    SCOPED_TRACE(operation.name);

    EXPECT_EQ(operation.call(huge, kNew), std::string(kReadAtMost, '\0')) << "at its start";

    EXPECT_EQ(bytesFrom(huge, size), "new");
    size += 3;
    EXPECT_EQ(fs::file_size(huge), static_cast<std::uintmax_t>(size));
  }
}

TEST_F(HugeFiles, AreReplacedAndRemovedLikeOthers) {
  expectOutcomes(here,
                 [this] {
                   fs::remove(here / "renamed");
                   scratch.file("here/huge");
                   fs::resize_file(huge, kTebibyte);
                   return huge;
                 },
                 {.truncate = "",
                  .replace = "new",
                  .publish = "new",
                  .remove = "gone",
                  .rename = "moved",
                  .removeAll = "gone"});
}

}  // namespace
