// The small runtime, through the operations that the module calls and the host interface.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

using Objects = BoundaryTest;

TEST_F(Objects, AnswerToTheirClassByShortAndQualifiedNameAndToEverySuperclass) {
  void* folder = newFolderPath("a");

  for (const char* name : {"FolderPath", "quen.io.FolderPath", "Path", "quen.io.Path", "Object"}) {
    EXPECT_NE(Quen_isInstanceOf(folder, name), 0) << name;
  }
  for (const char* name : {"FilePath", "quen.io.FilePath", "String", "io.FolderPath", ""}) {
    EXPECT_EQ(Quen_isInstanceOf(folder, name), 0) << name;
  }
  EXPECT_EQ(Quen_isInstanceOf(folder, nullptr), 0);
  EXPECT_EQ(Quen_isInstanceOf(nullptr, "Object"), 0);
  EXPECT_EQ(className(folder), "quen.io.FolderPath");
}

TEST_F(Objects, OfADefinedClassInheritClassTestsAndFields) {
  ASSERT_TRUE(defineClass("app.Home", "quen.io.FolderPath", {"owner"}));
  void* home = newObject("app.Home");
  void* text = newString("/home/ada");
  void* owner = newString("ada");

  Quen_setField_ptr(home, "_path", text);
  Quen_setField_ptr(home, "owner", owner);

  EXPECT_NE(Quen_isInstanceOf(home, "FolderPath"), 0);
  EXPECT_NE(Quen_isInstanceOf(home, "Home"), 0);
  EXPECT_EQ(Quen_isInstanceOf(newFolderPath("a"), "Home"), 0);
  EXPECT_EQ(pathText(home), "/home/ada");
  EXPECT_EQ(Quen_getField_i64(home, "_hasParentTraversal"), 0);
  EXPECT_EQ(reinterpret_cast<void*>(Quen_getField_i64(home, "owner")), owner);
}

TEST_F(Objects, OfAClassThatCannotBeDefinedAreRefused) {
  EXPECT_FALSE(defineClass("quen.io.Path", "Object", {})) << "taken";
  EXPECT_FALSE(defineClass("app.Orphan", "app.Nobody", {})) << "no superclass";
  EXPECT_FALSE(defineClass("app.Wide", "quen.io.Path", {"a", "b", "c", "d", "e"}))
      << "seven fields";
  EXPECT_TRUE(defineClass("app.Full", "quen.io.Path", {"a", "b", "c", "d"}));
  EXPECT_EQ(newObject("app.Nobody"), nullptr);
  EXPECT_EQ(Quen_allocObject(nullptr), nullptr);
}

TEST_F(Objects, IgnoreFieldsThatTheyDoNotHave) {
  void* string = newString("a");

  Quen_setField_ptr(string, "_path", string);
  Quen_setField_ptr(nullptr, "_path", string);

  EXPECT_EQ(Quen_getField_i64(string, "_path"), 0);
  EXPECT_EQ(Quen_getField_i64(newPath("a"), "nothing"), 0);
}

TEST_F(Objects, ThatAreStringsHoldAnyBytes) {
  const std::string bytes("\0\xFF\xC3 a\n\0", 7);

  EXPECT_EQ(stringBytes(Quen_allocString(bytes)), bytes);
  EXPECT_EQ(stringBytes(Quen_allocString("")), "");
  EXPECT_EQ(stringBytes(newPath("a")), "") << "a path is no String";
}

// "hg" among the flags of its mapping (proc_pid_smaps(5)): huge pages were advised.
bool isAdvisedHugePages(const void* memory) {
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  std::ifstream maps("/proc/self/smaps");
  bool inside = false;
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " ", &start, &end) == 2)
      inside = start <= address && address < end;
    if (inside && line.starts_with("VmFlags:")) return line.find(" hg") != std::string::npos;
  }
  return false;
}

TEST_F(Objects, ThatAreLargeStringsAreAdvisedHugePages) {
  if (kSanitized || !fs::exists("/sys/kernel/mm/transparent_hugepage"))
    GTEST_SKIP() << "no huge pages, or another allocator";
  constexpr std::size_t kLarge = std::size_t{64} << 20;
  const std::string bytes(kLarge, 'x');

  const std::string_view large = stringView(Quen_allocString(bytes));
  const std::string_view small = stringView(Quen_allocString(bytes.substr(0, kLarge / 4)));

  EXPECT_TRUE(isAdvisedHugePages(large.data() + kLarge / 2));
  EXPECT_FALSE(isAdvisedHugePages(small.data() + small.size() / 2));
  EXPECT_TRUE(large == bytes);
}

TEST_F(Objects, ThatAreByteArraysAreCopiedAsFarAsThereIsRoom) {
  std::array<std::uint8_t, 4> room{9, 9, 9, 9};
  void* array = newByteArray({1, 2, 3});

  EXPECT_EQ(copyByteArray(array, room), 3u);
  EXPECT_EQ(room, (std::array<std::uint8_t, 4>{1, 2, 3, 9}));
  EXPECT_EQ(copyByteArray(newByteArray({7, 8, 9}), std::span(room).first(2)), 2u);
  EXPECT_EQ(room, (std::array<std::uint8_t, 4>{7, 8, 3, 9}));
  EXPECT_EQ(copyByteArray(newString("no array"), room), 0u);
}

TEST_F(Objects, ThatArePathsAreMadeWithTheirParentTraversal) {
  for (const bool parentTraversal : {false, true}) {
    EXPECT_EQ(hasParentTraversal(newPath("a", parentTraversal)), parentTraversal);
    EXPECT_EQ(hasParentTraversal(newFolderPath("a", parentTraversal)), parentTraversal);
    EXPECT_EQ(hasParentTraversal(newFilePath("a", parentTraversal)), parentTraversal);
  }
}

TEST_F(Objects, ThatAreListsKeepTheirElementsInOrder) {
  void* list = Quen_allocObject("ArrayList");
  ASSERT_EQ(className(list), "quen.collections.ArrayList");

  quen_collections_ArrayList_add(list, newString("a"));
  quen_collections_ArrayList_add(list, nullptr);
  quen_collections_ArrayList_add(list, newString("b"));
  quen_collections_ArrayList_add(newString("no list"), nullptr);

  EXPECT_EQ(listElements(list).size(), 3u);
  EXPECT_EQ(listStrings(list), (std::vector<std::string>{"a", "", "b"}));
}

using Magic = BoundaryTest;

TEST_F(Magic, IsInEveryObjectAndInNothingElse) {
  char onStack[128] = {};

  EXPECT_TRUE(hasObjectMagic(newPath("a")));
  EXPECT_TRUE(hasObjectMagic(newString("")));
  EXPECT_TRUE(hasObjectMagic(newByteArray(0)));
  EXPECT_FALSE(hasObjectMagic(nullptr));
  for (char& byte : onStack) EXPECT_FALSE(hasObjectMagic(&byte));
  EXPECT_FALSE(hasObjectMagic(reinterpret_cast<void*>(~std::uintptr_t{0}))) << "no such address";
}

// The text of a short String lies within the object's own memory.
TEST_F(Magic, IsNotInTheTextOfAnObject) {
  for (const std::size_t length : {0u, 1u, 15u, 16u, 5000u}) {
    void* path = newPath(std::string(length, 'x'));

    EXPECT_FALSE(hasObjectMagic(const_cast<char*>(Quen_filePathFromObject(path)))) << length;
  }
}

// A copy of an object's bytes stands for the most cunning of texts.
TEST_F(Magic, IsNotInACopyOfAnObject) {
  alignas(64) std::array<char, 64> copy{};
  std::memcpy(copy.data(), newPath("a"), copy.size());

  EXPECT_FALSE(hasObjectMagic(copy.data()));
}

// The page behind the text may not be touched: reading past the NUL would end the process.
TEST_F(Magic, IsAskedOfATextUpToAPagesEndWithoutReadingOn) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* memory =
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* bytes = static_cast<char*>(memory);
  ASSERT_EQ(mprotect(bytes + page, page, PROT_NONE), 0);
  std::memset(bytes, 'Q', page - 1);

  for (std::size_t length = 0; length < page; ++length) {
    ASSERT_FALSE(hasObjectMagic(bytes + page - 1 - length)) << length;
  }
  EXPECT_FALSE(hasObjectMagic(bytes + page)) << "nor is what cannot be read";
  munmap(memory, 2 * page);
}

TEST_F(Magic, IsGoneWhenTheScopeIsClosed) {
  void* object = nullptr;
  {
    const Scope inner;
    object = newPath("a");
    EXPECT_TRUE(hasObjectMagic(object));
  }
  EXPECT_FALSE(hasObjectMagic(object));
  EXPECT_EQ(Quen_filePathFromObject(object), nullptr);
}

using Scopes = BoundaryTest;

TEST_F(Scopes, DestroyWhatWasMadeInThemAndNothingElse) {
  void* outer = newPath("outer");
  const std::size_t before = liveObjects();
  {
    const Scope inner;
    for (int i = 0; i < 5000; ++i) newPath("inner");
    EXPECT_EQ(liveObjects(), before + std::size_t{2} * 5000) << "a path and its String each";
  }
  EXPECT_EQ(liveObjects(), before);
  EXPECT_EQ(pathText(outer), "outer");
}

TEST_F(Scopes, CanBeSharedByThreads) {
  Scope shared;
  const std::size_t before = liveObjects();
  void* made = nullptr;

  std::thread([&made, &shared] {
    const Scope joined(&shared);
    made = newPath("from another thread");
  }).join();

  EXPECT_EQ(pathText(made), "from another thread");
  EXPECT_EQ(liveObjects(), before + 2);
}

std::size_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void callsInALoop(int calls) {
  for (int i = 0; i < calls; ++i) {
    const Scope one;
    void* path = newFolderPath("a/long/enough/text/to/be/kept/on/the/heap/./x");
    Quen_cachePathEntryKind(fs::path("/recorded") / std::to_string(i), kOtherEntry);
    ASSERT_NE(quen_io_Path_normalize(path), nullptr);
    quen_io_FileReader__readAllTextPath("");
    takeException();
  }
}

// A million calls make four million objects, and a tenth of them warms everything up that stays.
TEST_F(Scopes, GiveTheirMemoryBackSoThatAMillionCallsRunInBoundedMemory) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer keeps memory of its own";
  constexpr std::size_t kTolerance = std::size_t{16} * 1024 * 1024;
  callsInALoop(100'000);
  const std::size_t before = residentBytes();

  callsInALoop(1'000'000);

  EXPECT_LT(residentBytes(), before + kTolerance);
}

using Exceptions = BoundaryTest;

TEST_F(Exceptions, StayPendingUntilTaken) {
  EXPECT_EQ(Quen_hasPendingError(), 0);
  Quen_raise("IOException", "first");

  EXPECT_NE(Quen_hasPendingError(), 0);
  EXPECT_NE(Quen_hasPendingError(), 0);
  EXPECT_EQ(raised(), "IOException: first");
  EXPECT_EQ(Quen_hasPendingError(), 0);
}

TEST_F(Exceptions, KeepACopyOfTheMessage) {
  std::string message = "as it was";
  Quen_raise("IOException", message.c_str());
  message.assign(message.size(), '#');

  EXPECT_EQ(raised(), "IOException: as it was");
}

TEST_F(Exceptions, KeepTheFirstOfTwo) {
  Quen_raise("IOException", "cause");
  Quen_raise("TypeError", "consequence");

  EXPECT_EQ(raised(), "IOException: cause");
  EXPECT_EQ(raised(), "");
}

TEST_F(Exceptions, ArePendingOnTheirOwnThreadOnly) {
  Quen_raise("IOException", "here");

  std::thread([] {
    EXPECT_EQ(Quen_hasPendingError(), 0);
    Quen_raise("IOException", "there");
  }).join();

  EXPECT_EQ(raised(), "IOException: here");
}

using Paths = BoundaryTest;

TEST_F(Paths, KeepTheirTextAndFlags) {
  void* folder = Quen_allocTypedPathObjectFromPath("a/b", false, true, true);
  void* other = Quen_allocTypedPathObjectFromPath("c", true, false, false);

  EXPECT_STREQ(Quen_filePathFromObject(folder), "a/b");
  EXPECT_TRUE(isFolderPath(folder));
  EXPECT_NE(Quen_getField_i64(folder, "_hasParentTraversal"), 0);
  EXPECT_FALSE(isFolderPath(other));
  EXPECT_EQ(Quen_getField_i64(other, "_hasParentTraversal"), 0);
}

TEST_F(Paths, HaveNoTextWhenNullOrNoPath) {
  EXPECT_EQ(Quen_filePathFromObject(nullptr), nullptr);
  EXPECT_EQ(Quen_filePathFromObject(newString("a")), nullptr);
  EXPECT_EQ(Quen_filePathFromObject(newObject("quen.io.Path")), nullptr);
  EXPECT_EQ(pathText(nullptr), std::nullopt);
}

TEST_F(Paths, AreConvertedByteForByte) {
  EXPECT_EQ(Quen_runtimeFsPath(nullptr), fs::path());
  EXPECT_EQ(Quen_runtimeFsPath("a\\\xFF/").native(), "a\\\xFF/");
  EXPECT_EQ(Quen_visiblePathString("a//\xFF", true), "a//\xFF");
  EXPECT_EQ(text(Quen_allocPathString("a//\xFF", false)), "a//\xFF");
}

TEST_F(Paths, ShowADriveOrNetworkRoot) {
  for (const char* rooted : {"C:\\", "c:/x", "\\\\server", "\\\\server\\share"}) {
    EXPECT_TRUE(Quen_pathHasExplicitWindowsRoot(rooted)) << rooted;
  }
  for (const char* plain : {"", "C:", "C:x", "1:/", "/C:/", "//server", "\\x", "\\\\", "\\\\\\"}) {
    EXPECT_FALSE(Quen_pathHasExplicitWindowsRoot(plain)) << plain;
  }
  EXPECT_FALSE(Quen_pathHasExplicitWindowsRoot(nullptr));
}

using ByteArrays = BoundaryTest;

TEST_F(ByteArrays, AreReadAndFilledWithinTheirLength) {
  void* array = newByteArray(4);
  const std::array<std::uint8_t, 3> bytes{0, 255, 7};
  std::string error;

  EXPECT_TRUE(Quen_writeByteArrayData(array, bytes.data(), bytes.size(), error));
  EXPECT_EQ(error, "");
  std::vector<std::uint8_t> read{9};
  EXPECT_TRUE(Quen_readByteArrayData(array, read, error));
  EXPECT_EQ(read, (std::vector<std::uint8_t>{0, 255, 7, 0}));
}

TEST_F(ByteArrays, RefuseMoreThanTheyHold) {
  void* array = newByteArray({1, 2});
  const std::array<std::uint8_t, 3> bytes{7, 7, 7};
  std::string error;

  EXPECT_FALSE(Quen_writeByteArrayData(array, bytes.data(), bytes.size(), error));
  EXPECT_EQ(error, "Byte[] of length 2 cannot hold 3 bytes");
  EXPECT_EQ(byteArrayContents(array), (std::vector<std::uint8_t>{1, 2}));
}

TEST_F(ByteArrays, AreNothingElse) {
  std::vector<std::uint8_t> bytes;
  std::string error;

  EXPECT_FALSE(Quen_readByteArrayData(nullptr, bytes, error));
  EXPECT_EQ(error, "Expected Byte[] but got null");
  EXPECT_FALSE(Quen_readByteArrayData(newPath("a"), bytes, error));
  EXPECT_EQ(error, "Expected Byte[] but got quen.io.Path");
  EXPECT_FALSE(Quen_writeByteArrayData(nullptr, nullptr, 0, error));
  EXPECT_EQ(error, "Expected Byte[] but got null");
}

using Kinds = BoundaryTest;

TEST_F(Kinds, AreThoseOfTheEntryBehindALink) {
  const fs::path file = scratch.file("file");

  EXPECT_EQ(Quen_pathEntryKind(file), QuenPathEntryKind::kRegularFile);
  EXPECT_EQ(Quen_pathEntryKind(scratch.link("link", file)), QuenPathEntryKind::kRegularFile);
  EXPECT_EQ(Quen_pathEntryKind(scratch.path()), QuenPathEntryKind::kDirectory);
  EXPECT_EQ(Quen_pathEntryKind("/dev/null"), kOtherEntry);
  EXPECT_EQ(Quen_pathEntryKind(scratch.link("dangling", "nowhere")), kMissingEntry);
  EXPECT_FALSE(Quen_pathExists(scratch / "dangling"));
  EXPECT_TRUE(Quen_pathExists("/dev/null"));
}

TEST_F(Kinds, OfAListedFolderAreOnRecordForWhoeverWalksIt) {
  scratch.file("a");
  scratch.folder("b");
  quen_io_FolderPath__listNamesNative(scratch.path().c_str());

  // Gone meanwhile, so the answer can only come from the record.
  fs::remove_all(scratch / "a");
  fs::remove_all(scratch / "b");

  EXPECT_EQ(recordedKind(scratch / "a"), QuenPathEntryKind::kRegularFile);
  EXPECT_EQ(recordedKind(scratch / "b"), QuenPathEntryKind::kDirectory);
  EXPECT_EQ(recordedKind(scratch / "c"), std::nullopt);
}

TEST_F(Kinds, OnRecordNeverAnswerAQueryThatTheSystemWouldAnswerOtherwise) {
  const fs::path file = scratch.file("a");
  void* path = newPath(file.native());
  quen_io_FolderPath__listNamesNative(scratch.path().c_str());
  ASSERT_EQ(recordedKind(file), QuenPathEntryKind::kRegularFile);

  fs::remove(file);
  EXPECT_FALSE(quen_io_Path__exists(path));
  EXPECT_FALSE(quen_io_Path__isRegular(path));
  EXPECT_FALSE(quen_io_FileInputStream__existsPath(file.c_str()));

  fs::create_directory(file);
  EXPECT_TRUE(quen_io_Path__exists(path));
  EXPECT_FALSE(quen_io_Path__isRegular(path));
  EXPECT_TRUE(quen_io_Path__isDirectory(path));
}

TEST_F(Kinds, OnRecordAreTheLatest) {
  forgetRecordedKinds();

  Quen_cachePathEntryKind("/x", QuenPathEntryKind::kDirectory);
  Quen_cachePathEntryKind("/x", QuenPathEntryKind::kRegularFile);

  EXPECT_EQ(recordedKind("/x"), QuenPathEntryKind::kRegularFile);
  EXPECT_EQ(recordedKinds(), 1u);
}

// Enough others to make it old, but not forgotten.
TEST_F(Kinds, OnRecordAreTheLatestAlsoOfAnOlderPath) {
  forgetRecordedKinds();

  Quen_cachePathEntryKind("/x", QuenPathEntryKind::kDirectory);
  for (int i = 0; i < 40'000; ++i) Quen_cachePathEntryKind(std::to_string(i), kOtherEntry);
  EXPECT_EQ(recordedKind("/x"), QuenPathEntryKind::kDirectory);
  Quen_cachePathEntryKind("/x", QuenPathEntryKind::kRegularFile);

  EXPECT_EQ(recordedKind("/x"), QuenPathEntryKind::kRegularFile);
  forgetRecordedKinds();
}

TEST_F(Kinds, OnRecordAreBoundedInNumberAndKeepTheLatest) {
  constexpr int kMany = 200'000;
  constexpr int kKept = 32'768;
  const auto path = [](int i) { return "/many/" + std::to_string(i); };
  forgetRecordedKinds();

  for (int i = 0; i < kMany; ++i) Quen_cachePathEntryKind(path(i), kOtherEntry);

  EXPECT_LE(recordedKinds(), std::size_t{2} * kKept);
  for (int i = kMany - kKept; i < kMany; ++i) ASSERT_EQ(recordedKind(path(i)), kOtherEntry) << i;
  EXPECT_EQ(recordedKind(path(0)), std::nullopt);
  forgetRecordedKinds();
}

TEST_F(Kinds, OnRecordAreBoundedInBytes) {
  const std::string text(100'000, 'x');
  forgetRecordedKinds();

  for (int i = 0; i < 1000; ++i) Quen_cachePathEntryKind(text + std::to_string(i), kOtherEntry);

  EXPECT_LE(recordedKinds(), std::size_t{16} * 1024 * 1024 / text.size());
  EXPECT_EQ(recordedKind(text + "999"), kOtherEntry);
  forgetRecordedKinds();
}

}  // namespace
