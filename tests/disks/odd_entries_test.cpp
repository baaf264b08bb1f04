// What every operation does with entries that are not ordinary files of ordinary names.

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

namespace {

using quen::tests::BoundaryTest;
using quen::tests::contents;
using quen::tests::expectOutcomes;
using quen::tests::inChild;
using quen::tests::kNew;
using quen::tests::namesIn;
using quen::tests::openFiles;
using quen::tests::Outcomes;
using quen::tests::unreachable;
using quen::tests::Watchdog;

// What works on a file that holds "old".
Outcomes ofAnOrdinaryFile() {
  return {.entry = "file of 3 bytes",
          .text = "old",
          .prefix = "old",
          .bytes = "old",
          .truncate = "",
          .replace = "new",
          .append = "oldnew",
          .publish = "new",
          .remove = "gone",
          .rename = "moved",
          .touch = "file of 3 bytes",
          .makeFolder = "IOException: A non-directory path already exists",
          .makeFolders = "IOException: A non-directory path already exists",
          .removeAll = "gone",
          .list = "IOException: Cannot enumerate directory"};
}

class OddEntries : public BoundaryTest {
 protected:
  // For each call, an entry that is made anew, alone in its folder. The folder is left as it is
  // when there is nothing to make.
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
    expectOfFile(here / name, ofAnOrdinaryFile());
    fs::remove(here / "renamed");

    scratch.file("here/" + name);
    EXPECT_EQ(listStrings(quen_io_FolderPath__listNamesNative(here.c_str())),
              std::vector<std::string>{name});
    fs::remove(here / name);
  }
}

// The name of an index has to leave room for what its temporary is called.
TEST_F(OddEntries, WithTheLongestNameAreOrdinaryButForAnIndex) {
  Outcomes expected = ofAnOrdinaryFile();
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

// The NUL at its end counts for the system.
constexpr std::size_t kLongestPath = PATH_MAX - 1;

// A path in this folder of exactly this length, with names that are all short enough. The folder it
// names is not there.
fs::path pathOfLength(const fs::path& folder, std::size_t length) {
  std::string path = folder;
  while (length - path.size() > 201) path += '/' + std::string(99, 'd');
  path += '/';
  return path + std::string(length - path.size(), 'f');
}

TEST_F(OddEntries, OfTheLongestPathAreOrdinaryButForAnIndex) {
  const fs::path file = pathOfLength(here, kLongestPath);
  fs::create_directories(file.parent_path());
  Outcomes expected = ofAnOrdinaryFile();
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

// Each step is taken from the folder above it.
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

// What is written goes to where the link leads, and an index takes the place of the link.
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

TEST_F(OddEntries, ThatAreLinksToThemselvesCanOnlyBeTakenAway) {
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
  Outcomes expected = ofAnOrdinaryFile();
  expected.entry = expected.touch = "other";
  expected.text = expected.prefix = expected.bytes = "";
  expected.truncate = expected.replace = expected.append = "no file";
  return expected;
}

// From the folder, since the address of a socket has room for little.
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

// A device of the test's own that swallows everything and is always at its end.
TEST_F(OddEntries, ThatAreDevicesTakeTextsAndMakeRoomForAnIndex) {
  const dev_t swallowing = makedev(1, 3);
  if (mknod((scratch / "probe").c_str(), S_IFCHR | 0600, swallowing) != 0) {
    GTEST_SKIP() << "a device may not be made here: " << std::strerror(errno);
  }
  if (access((scratch / "probe").c_str(), R_OK) != 0 || !std::ifstream(scratch / "probe")) {
    GTEST_SKIP() << "devices may not be opened on this file system";
  }

  expectOfEntry(
      [=](const fs::path& path) { ASSERT_EQ(mknod(path.c_str(), S_IFCHR | 0600, swallowing), 0); },
      ofWhatIsNeitherFileNorFolder());
}

// A pipe that the test holds open at both ends, so that no open waits for the other.
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

  // What was written into it.
  std::string taken() const {
    std::array<char, 4096> bytes;
    const ssize_t count = read(both_, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  int both_;
};

TEST_F(OddEntries, ThatArePipesTakeTextsWithoutAPosition) {
  const Watchdog watchdog;
  std::optional<Pipe> pipe;
  Outcomes expected = ofWhatIsNeitherFileNorFolder();
  expected.text = expected.prefix = std::nullopt;  // would wait
  expected.bytes = "IOException: Cannot seek in file";

  expectOfEntry([&](const fs::path& path) { pipe.emplace(path); }, expected);
}

TEST_F(OddEntries, ThatArePipesGetEveryByteAndAPrefixOfTheirs) {
  const Watchdog watchdog;
  const Pipe pipe(here / "pipe");
  for (const auto& operation : quen::tests::everyOperation()) {
    SCOPED_TRACE(operation.name);
    if (!operation.writesText()) continue;
    EXPECT_EQ(operation.call(here / "pipe", kNew), "no file");
    EXPECT_EQ(pipe.taken(), "new");
  }

  pipe.put("0123456789");
  EXPECT_EQ(text(quen_io_FileReader__readPrefixPath((here / "pipe").c_str(), 4)), "0123");
  EXPECT_EQ(pipe.taken(), "456789") << "no byte more was taken";
}

// Somebody else writes, and closes.
TEST_F(OddEntries, ThatArePipesAreReadToTheirEnd) {
  const Watchdog watchdog;
  const fs::path pipe = here / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& operation : quen::tests::everyOperation()) {
    if (operation.group != &Outcomes::text && operation.group != &Outcomes::prefix) continue;
    SCOPED_TRACE(operation.name);
    const auto before = openFiles();

    std::jthread writer([&pipe] { std::ofstream(pipe) << "from the pipe"; });
    EXPECT_EQ(operation.call(pipe, kNew), "from the pipe");
    writer.join();

    EXPECT_EQ(openFiles(), before);
  }
}

// Files that the kernel makes up. Only read: they are not the test's own.

TEST_F(OddEntries, WithoutASizeHaveTheirContentAllTheSame) {
  const std::string version = contents("/proc/version");
  ASSERT_GT(version.size(), 0U);
  const std::string start = version.substr(0, quen::tests::kReadAtMost);

  expectOutcomes(here, [] { return "/proc/version"; },
                 {.entry = "file of 0 bytes", .text = version, .prefix = start, .bytes = start});
}

// It tells of this process, and it changes while it is read.
TEST_F(OddEntries, ThatTellOfTheProcessCanBeReadFromAPosition) {
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

// The size is that of a page, whatever is in them.
TEST_F(OddEntries, OfASizeThatIsTooLargeHaveWhatIsInThem) {
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

// Nothing is at the address 0 of a process. A whole text ends there.
TEST_F(OddEntries, ThatCannotBeReadFail) {
  expectOutcomes(here, [] { return "/proc/self/mem"; },
                 {.text = "",
                  .prefix = "IOException: Failed to read file",
                  .bytes = "IOException: Failed to read file"});
}

// Files with a hole.

constexpr std::int64_t kTebibyte = std::int64_t{1} << 40;

// The whole of it as a text is more than there is memory for.
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
  const std::string zeros(quen::tests::kReadAtMost, '\0');

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
  for (const auto& operation : quen::tests::everyOperation()) {
    if (operation.group != &Outcomes::append) continue;
    SCOPED_TRACE(operation.name);

    EXPECT_EQ(operation.call(huge, kNew), std::string(quen::tests::kReadAtMost, '\0'))
        << "at its start";

    EXPECT_EQ(bytesFrom(huge, size), "new");
    size += 3;
    EXPECT_EQ(fs::file_size(huge), static_cast<std::uintmax_t>(size));
  }
}

TEST_F(HugeFiles, AreReplacedAndTakenAwayAsOthersAre) {
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
