#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"
#include "tests/support/limits.h"
#include "tests/support/process_state.h"
#include "tests/support/system_calls.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;
using namespace std::string_literals;

namespace {

constexpr const char* kDeviceWithoutSpace = "/dev/full";

// Larger than the buffer of any stream.
const std::string kLong(std::size_t{1} << 20, 'x');

void* byteArray(const std::string& bytes) {
  return newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

// An entry point that writes a text into a file, called with the arguments it needs.
struct Way {
  const char* name;
  void (*write)(const char* path, const std::string& text);
  bool appends;
};

std::ostream& operator<<(std::ostream& stream, const Way& way) { return stream << way.name; }

std::string nameOf(const testing::TestParamInfo<Way>& way) { return way.param.name; }

template <void (*kWrite)(const char*, const char*)>
void writeText(const char* path, const std::string& text) {
  kWrite(path, text.c_str());
}

template <void (*kWrite)(const char*, void*)>
void writeBytes(const char* path, const std::string& text) {
  kWrite(path, byteArray(text));
}

const Way kFileWriterAppend{"FileWriterAppend", writeText<quen_io_FileWriter__appendPath>, true};
const Way kOutputStreamAppend{"FileOutputStreamAppendText",
                              writeText<quen_io_FileOutputStream__appendTextPath>, true};
const Way kWrite{"FileWriterWrite", writeText<quen_io_FileWriter__writePath>, false};
const Way kWriteBytes{"FilesWriteBytes", writeBytes<quen_io_Files__writeBytesPath>, false};
const Way kWriteBytesWithPrefix{"FilesWriteBytesWithPrefix",
                                [](const char* path, const std::string& text) {
                                  const std::string prefix = text.substr(0, text.size() / 2);
                                  const std::string rest = text.substr(prefix.size());
                                  quen_io_Files__writeBytesWithPrefixPath(path, prefix.c_str(),
                                                                          byteArray(rest));
                                },
                                false};
const Way kPrefixAlone{"FilesWriteBytesWithPrefixAlone",
                       [](const char* path, const std::string& text) {
                         quen_io_Files__writeBytesWithPrefixPath(path, text.c_str(), nullptr);
                       },
                       false};
const Way kAppendBytes{"FileOutputStreamAppendBytes",
                       writeBytes<quen_io_FileOutputStream__appendBytesPath>, true};
const Way kFileWriterTruncate{
    "FileWriterTruncate",
    [](const char* path, const std::string&) { quen_io_FileWriter__truncatePath(path); }, false};
const Way kOutputStreamTruncate{
    "FileOutputStreamTruncate",
    [](const char* path, const std::string&) { quen_io_FileOutputStream__truncatePath(path); },
    false};

// Common to all entry points, including those that write nothing.

class AnyOpening : public BoundaryTest, public testing::WithParamInterface<Way> {
 protected:
  static std::string raisedByWriting(const fs::path& path) {
    GetParam().write(path.c_str(), "new");
    return raised();
  }
};

INSTANTIATE_TEST_SUITE_P(, AnyOpening,
                         testing::Values(kFileWriterAppend, kOutputStreamAppend, kWrite,
                                         kWriteBytes, kWriteBytesWithPrefix, kPrefixAlone,
                                         kAppendBytes, kFileWriterTruncate, kOutputStreamTruncate),
                         nameOf);

TEST_P(AnyOpening, OfAnEmptyPathRaises) {
  for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
    GetParam().write(empty, "new");
    EXPECT_EQ(raised(), "IOException: File path is empty");
  }
}

TEST_P(AnyOpening, OfAFolderRaises) {
  const fs::path folder = scratch.folder("folder");
  const fs::path link = scratch.link("link", folder);

  EXPECT_EQ(raisedByWriting(folder), "IOException: Cannot open file for writing");
  EXPECT_EQ(raisedByWriting(link), "IOException: Cannot open file for writing");
  EXPECT_EQ(raisedByWriting(scratch / "new/"), "IOException: Cannot open file for writing");

  EXPECT_EQ(namesIn(scratch.path()), "folder link");
  EXPECT_EQ(namesIn(folder), "");
}

TEST_P(AnyOpening, WithAMissingParentRaisesAndMakesNothing) {
  const fs::path link = scratch.link("link", scratch / "missing/target");

  EXPECT_EQ(raisedByWriting(scratch / "missing/new"), "IOException: Cannot open file for writing");
  EXPECT_EQ(raisedByWriting(link), "IOException: Cannot open file for writing");

  EXPECT_EQ(namesIn(scratch.path()), "link");
}

TEST_P(AnyOpening, BelowAFileRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  EXPECT_EQ(raisedByWriting(file / "new"), "IOException: Cannot open file for writing");

  EXPECT_EQ(contents(file), "kept");
}

TEST_P(AnyOpening, WithoutPermissionRaisesAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");
  fs::permissions(file, fs::perms(0444));
  fs::permissions(scratch.path(), fs::perms(0555));

  inUnprivilegedChild([&] {
    EXPECT_EQ(raisedByWriting(file), "IOException: Cannot open file for writing");
    EXPECT_EQ(raisedByWriting(scratch / "new"), "IOException: Cannot open file for writing");
  });

  fs::permissions(scratch.path(), fs::perms::all);
  EXPECT_EQ(namesIn(scratch.path()), "file");
  EXPECT_EQ(contents(file), "kept");
}

TEST_P(AnyOpening, NeedsNoPermissionToRead) {
  fs::permissions(scratch.path(), fs::perms::all);

  inUnprivilegedChild([this] {
    const fs::path file = scratch.file("file");
    fs::permissions(file, fs::perms::owner_write);

    EXPECT_EQ(raisedByWriting(file), "");
  });
}

TEST_P(AnyOpening, MakesAMissingFile) {
  EXPECT_EQ(raisedByWriting(scratch / "new"), "");

  EXPECT_TRUE(fs::is_regular_file(scratch / "new"));
}

TEST_P(AnyOpening, MakesTheMissingTargetOfALink) {
  const fs::path link = scratch.link("link", scratch / "target");

  EXPECT_EQ(raisedByWriting(link), "");

  EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(scratch / "target")));
}

// The inode stays the same: the file is not replaced by a new one.
TEST_P(AnyOpening, WritesIntoTheExistingFile) {
  const fs::path file = scratch.file("file", "old");
  fs::create_hard_link(file, scratch / "other name");
  fs::permissions(file, fs::perms(0606));

  EXPECT_EQ(raisedByWriting(file), "");

  EXPECT_EQ(contents(scratch / "other name"), contents(file));
  EXPECT_EQ(fs::hard_link_count(file), 2u);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0606));
}

TEST_P(AnyOpening, OfAPathFromTheWorkingDirectory) {
  inChild([this] {
    fs::current_path(scratch.path());
    EXPECT_EQ(raisedByWriting("new"), "");
  });

  EXPECT_EQ(namesIn(scratch.path()), "new");
}

TEST_P(AnyOpening, LeavesNothingOpen) {
  const auto before = openFiles();

  EXPECT_EQ(raisedByWriting(scratch / "new"), "");
  EXPECT_EQ(raisedByWriting(scratch.path()), "IOException: Cannot open file for writing");
  GetParam().write(kDeviceWithoutSpace, kLong);
  raised();

  EXPECT_EQ(openFiles(), before);
}

TEST_P(AnyOpening, DoesNotCheckTheClose) {
  const FailingCall failing(SystemCall::kClose, EIO);

  EXPECT_EQ(raisedByWriting(scratch / "new"), "");
}

TEST_P(AnyOpening, RecordsNoKind) {
  forgetRecordedKinds();

  EXPECT_EQ(raisedByWriting(scratch / "new"), "");

  EXPECT_EQ(recordedKinds(), 0u);
}

// Common to all entry points that write.

class AnyWrite : public BoundaryTest, public testing::WithParamInterface<Way> {
 protected:
  static std::string raisedByWriting(const fs::path& path, const std::string& text) {
    GetParam().write(path.c_str(), text);
    return raised();
  }

  // The contents of a file with `oldContent` after writing `newContent`.
  static std::string after(const std::string& oldContent, const std::string& newContent) {
    return GetParam().appends ? oldContent + newContent : newContent;
  }
};

INSTANTIATE_TEST_SUITE_P(, AnyWrite,
                         testing::Values(kFileWriterAppend, kOutputStreamAppend, kWrite,
                                         kWriteBytes, kWriteBytesWithPrefix, kPrefixAlone,
                                         kAppendBytes),
                         nameOf);

TEST_P(AnyWrite, CreatesAMissingFileAlsoForAnEmptyText) {
  for (const std::string written : {"some text", ""}) {
    fs::remove(scratch / "new");

    EXPECT_EQ(raisedByWriting(scratch / "new", written), "");

    EXPECT_EQ(contents(scratch / "new"), written);
  }
}

TEST_P(AnyWrite, ReplacesOrAppends) {
  const fs::path file = scratch.file("file", "older content");

  EXPECT_EQ(raisedByWriting(file, "abc"), "");
  EXPECT_EQ(raisedByWriting(file, "de"), "");

  EXPECT_EQ(contents(file), after(after("older content", "abc"), "de"));
}

TEST_P(AnyWrite, OfNothingIntoAFileReplacesOrAppendsNothing) {
  const fs::path file = scratch.file("file", "old");

  EXPECT_EQ(raisedByWriting(file, ""), "");

  EXPECT_EQ(contents(file), after("old", ""));
}

TEST_P(AnyWrite, ChangesNoByte) {
  std::string bytes;
  for (int byte = 0xFF; byte > 0; --byte) bytes += static_cast<char>(byte);
  bytes += "\r\n \xEF\xBB\xBF h\xC3\xA9llo \xED\xA0\x80 no newline at the end";
  const fs::path file = scratch.file("file", "old");

  EXPECT_EQ(raisedByWriting(file, bytes), "");

  EXPECT_EQ(contents(file), after("old", bytes));
}

TEST_P(AnyWrite, OfALongTextWritesAllOfIt) {
  const fs::path file = scratch.file("file", "old");

  EXPECT_EQ(raisedByWriting(file, kLong), "");

  EXPECT_TRUE(contents(file) == after("old", kLong));
}

TEST_P(AnyWrite, OfALongTextOntoAFullDeviceRaises) {
  EXPECT_EQ(raisedByWriting(kDeviceWithoutSpace, kLong), "IOException: Failed to write file");
}

// The bytes stay in the filebuf until the close, which is unchecked.
TEST_P(AnyWrite, OfAFewBytesOntoAFullDeviceRaisesNothing) {
  EXPECT_EQ(raisedByWriting(kDeviceWithoutSpace, "few"), "");
}

TEST_P(AnyWrite, ThatFailsLeavesWhatReachedTheFile) {
  const fs::path file = scratch.file("file", "old");
  const std::size_t size = 3000;

  inChild([&] {
    const FileSizeLimit limit(size);
    EXPECT_EQ(raisedByWriting(file, kLong), "IOException: Failed to write file");
  });

  EXPECT_EQ(contents(file), after("old", kLong).substr(0, size));
}

TEST_P(AnyWrite, ThatFailsWhileClosingLeavesWhatReachedTheFile) {
  const fs::path file = scratch.file("file", "old");

  inChild([&] {
    const FileSizeLimit limit(5);
    EXPECT_EQ(raisedByWriting(file, "new text"), "");
  });

  EXPECT_EQ(contents(file), after("old", "new text").substr(0, 5));
}

TEST_P(AnyWrite, WithoutRoomForAByteLeavesTheFileEmptiedOrUnchanged) {
  const fs::path file = scratch.file("file", "old");

  inChild([&] {
    const FileSizeLimit limit(0);
    EXPECT_EQ(raisedByWriting(file, kLong), "IOException: Failed to write file");
  });

  EXPECT_EQ(contents(file), after("old", ""));
}

// Truncating.

class Truncate : public BoundaryTest, public testing::WithParamInterface<bool (*)(const char*)> {
 protected:
  static bool truncate(const fs::path& path) { return GetParam()(path.c_str()); }
};

INSTANTIATE_TEST_SUITE_P(, Truncate,
                         testing::Values(quen_io_FileWriter__truncatePath,
                                         quen_io_FileOutputStream__truncatePath),
                         [](const auto& way) {
                           return way.index == 0 ? "FileWriter" : "FileOutputStream";
                         });

TEST_P(Truncate, EmptiesAFile) {
  const fs::path file = scratch.file("file", "content");

  EXPECT_TRUE(truncate(file));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "");
}

TEST_P(Truncate, MakesAMissingFileEmpty) {
  EXPECT_TRUE(truncate(scratch / "new"));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(scratch / "new"), "");
}

TEST_P(Truncate, EmptiesTheTargetOfALink) {
  const fs::path file = scratch.file("file", "content");

  EXPECT_TRUE(truncate(scratch.link("link", file)));

  EXPECT_EQ(contents(file), "");
}

TEST_P(Truncate, OfADeviceSucceeds) { EXPECT_TRUE(truncate(kDeviceWithoutSpace)); }

TEST_P(Truncate, ThatRaisesIsFalse) {
  EXPECT_FALSE(GetParam()(nullptr));
  EXPECT_EQ(raised(), "IOException: File path is empty");
  EXPECT_FALSE(truncate(""));
  EXPECT_EQ(raised(), "IOException: File path is empty");
  EXPECT_FALSE(truncate(scratch.path()));
  EXPECT_EQ(raised(), "IOException: Cannot open file for writing");
  EXPECT_FALSE(truncate(scratch / "missing/new"));
  EXPECT_EQ(raised(), "IOException: Cannot open file for writing");
}

// Texts.

class WriteText : public BoundaryTest {
 protected:
  static constexpr void (*kAppending[])(const char*, const char*) = {
      quen_io_FileWriter__appendPath, quen_io_FileOutputStream__appendTextPath};
};

TEST_F(WriteText, AppendsNothingForANull) {
  const fs::path file = scratch.file("file", "kept");

  for (const auto append : kAppending) {
    append(file.c_str(), nullptr);
    append((scratch / "new").c_str(), nullptr);
  }

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(contents(scratch / "new"), "");
}

TEST_F(WriteText, LeavesAFileEmptyForANull) {
  const fs::path file = scratch.file("file", "old");

  quen_io_FileWriter__writePath(file.c_str(), nullptr);

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "");
}

TEST_F(WriteText, StopsAtTheFirstNul) {
  const fs::path file = scratch / "file";

  for (const auto append : kAppending) append(file.c_str(), "ab\0cd");
  EXPECT_EQ(contents(file), "abab");

  quen_io_FileWriter__writePath(file.c_str(), "xy\0z");
  EXPECT_EQ(contents(file), "xy");
  EXPECT_EQ(raised(), "");
}

// Replacing a text is not atomic.
TEST_F(WriteText, EmptiesTheFileBeforeItOpensItForTheText) {
  const fs::path file = scratch.file("file", "old");
  std::string between = "not read";

  const BeforeCall secondOpening(
      SystemCall::kOpen, [&] { between = contents(file); }, 2);
  quen_io_FileWriter__writePath(file.c_str(), "new");

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(between, "");
  EXPECT_EQ(contents(file), "new");
}

TEST_F(WriteText, AppendsToTextsWrittenBetweenItsTwoOpens) {
  const fs::path file = scratch.file("file", "old");

  const BeforeCall secondOpening(
      SystemCall::kOpen, [this] { scratch.file("file", "theirs and "); }, 2);
  quen_io_FileWriter__writePath(file.c_str(), "ours");

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "theirs and ours");
}

TEST_F(WriteText, ThatCannotOpenTheFileAgainRaisesAndLeavesItEmpty) {
  const fs::path link = scratch.link("link", scratch.file("file", "old"));

  const BeforeCall secondOpening(
      SystemCall::kOpen,
      [&] {
        fs::remove(link);
        fs::create_directory(link);
      },
      2);
  quen_io_FileWriter__writePath(link.c_str(), "new");

  EXPECT_EQ(raised(), "IOException: Cannot open file for writing");
  EXPECT_EQ(contents(scratch / "file"), "");
}

// Byte arrays.

class WriteBytes : public BoundaryTest {};

TEST_F(WriteBytes, PutsThePrefixRightBeforeThem) {
  const fs::path file = scratch.file("file", "older content");

  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P", newByteArray({1, 2}));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "P\x01\x02");
}

TEST_F(WriteBytes, PutsNothingBeforeThemWithoutAPrefix) {
  const fs::path file = scratch.file("file", "older content");

  for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
    quen_io_Files__writeBytesWithPrefixPath(file.c_str(), empty, newByteArray({1, 2}));
    EXPECT_EQ(raised(), "");
    EXPECT_EQ(contents(file), "\x01\x02");
  }
}

TEST_F(WriteBytes, StopsThePrefixAtItsFirstNul) {
  const fs::path file = scratch / "file";

  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P\0Q", byteArray("\x01"));

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "P\x01");
}

TEST_F(WriteBytes, WritesNulsOfTheArray) {
  const std::string bytes = "\0a\0\0b\0"s;
  const fs::path file = scratch / "file";

  quen_io_Files__writeBytesPath(file.c_str(), byteArray(bytes));
  EXPECT_EQ(contents(file), bytes);
  quen_io_FileOutputStream__appendBytesPath(file.c_str(), byteArray(bytes));
  EXPECT_EQ(contents(file), bytes + bytes);
  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P", byteArray(bytes));
  EXPECT_EQ(contents(file), "P" + bytes);
  EXPECT_EQ(raised(), "");
}

TEST_F(WriteBytes, LeavesTheArrayAsItIs) {
  void* array = newByteArray({1, 2});

  quen_io_Files__writeBytesPath((scratch / "file").c_str(), array);
  quen_io_FileOutputStream__appendBytesPath((scratch / "file").c_str(), array);

  EXPECT_EQ(raised(), "");
  EXPECT_EQ(byteArrayContents(array), (std::vector<std::uint8_t>{1, 2}));
}

// Replacing and appending differ intentionally.
TEST_F(WriteBytes, TakesANullForNoBytesWhenReplacing) {
  const fs::path file = scratch.file("file", "old");

  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "P", nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "P");

  quen_io_Files__writeBytesPath(file.c_str(), nullptr);
  EXPECT_EQ(raised(), "");
  EXPECT_EQ(contents(file), "");
}

TEST_F(WriteBytes, RefusesANullWhenAppendingAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  quen_io_FileOutputStream__appendBytesPath(file.c_str(), nullptr);
  EXPECT_EQ(raised(), "TypeError: Expected Byte[] but got null");
  quen_io_FileOutputStream__appendBytesPath((scratch / "new").c_str(), nullptr);
  EXPECT_EQ(raised(), "TypeError: Expected Byte[] but got null");

  EXPECT_EQ(contents(file), "kept");
  EXPECT_EQ(namesIn(scratch.path()), "file");
}

// Entry points that take an object, which may be of any class.
struct Bytes {
  const char* name;
  void (*write)(const char* path, void* bytes);
};

class WriteNoBytes : public BoundaryTest, public testing::WithParamInterface<Bytes> {
 protected:
  static std::string raisedByWriting(const fs::path& path, void* object) {
    GetParam().write(path.c_str(), object);
    return raised();
  }
};

INSTANTIATE_TEST_SUITE_P(, WriteNoBytes,
                         testing::Values(Bytes{"Write", quen_io_Files__writeBytesPath},
                                         Bytes{"WriteWithPrefix",
                                               [](const char* path, void* bytes) {
                                                 quen_io_Files__writeBytesWithPrefixPath(
                                                     path, "prefix", bytes);
                                               }},
                                         Bytes{"Append",
                                               quen_io_FileOutputStream__appendBytesPath}),
                         [](const auto& way) { return way.param.name; });

TEST_P(WriteNoBytes, RaisesTheRuntimesWordsAndLeavesTheFile) {
  const fs::path file = scratch.file("file", "kept");

  EXPECT_EQ(raisedByWriting(file, newString("text")), "TypeError: Expected Byte[] but got String");
  EXPECT_EQ(raisedByWriting(file, newPath("path")),
            "TypeError: Expected Byte[] but got quen.io.Path");

  EXPECT_EQ(contents(file), "kept");
}

TEST_P(WriteNoBytes, MakesNoMissingFile) {
  EXPECT_EQ(raisedByWriting(scratch / "new", newString("text")),
            "TypeError: Expected Byte[] but got String");

  EXPECT_EQ(namesIn(scratch.path()), "");
}

TEST_P(WriteNoBytes, RaisesBeforeItTriesToOpenTheFile) {
  EXPECT_EQ(raisedByWriting(scratch.path(), newString("text")),
            "TypeError: Expected Byte[] but got String");
  EXPECT_EQ(raisedByWriting(scratch / "missing/new", newString("text")),
            "TypeError: Expected Byte[] but got String");
}

TEST_P(WriteNoBytes, ReportsAnEmptyPathFirst) {
  for (const char* empty : {static_cast<const char*>(nullptr), ""}) {
    GetParam().write(empty, newString("text"));
    EXPECT_EQ(raised(), "IOException: File path is empty");
    GetParam().write(empty, nullptr);
    EXPECT_EQ(raised(), "IOException: File path is empty");
  }
}

}  // namespace
