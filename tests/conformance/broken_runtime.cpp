// The small runtime with one deliberate mistake, named by the environment variable QUEN_IO_BROKEN,
// or without one if it is not set. Runs the conformance kit, which has to detect every mistake.
// With --broken it prints the names of the mistakes, with --fatal those that end the process or
// hang. QUEN_IO_ADAPTER names an adapter for another kind of runtime.

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "conformance/small_adapter.h"
#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/operations.h"

namespace fs = std::filesystem;
namespace small = quen::small;
namespace operations = quen::small::operations;

namespace {

constexpr auto kMistakes = std::to_array<std::string_view>({
    "runtimeFsPath gives . for null",
    "runtimeFsPath gives . for the empty text",
    "runtimeFsPath drops what is not ASCII",
    "runtimeFsPath cuts long texts",
    "runtimeFsPath normalizes",

    "visiblePathString gives . for the empty path",
    "visiblePathString drops what is not ASCII",
    "visiblePathString puts a drive in front with the root flag",
    "visiblePathString drops drives with the root flag",

    "allocPathString normalizes",
    "allocPathString turns separators around with the root flag",
    "allocPathString gives null for the empty path",

    "allocString gives null for no bytes",
    "allocString truncates at NUL",
    "allocString drops what is not ASCII",
    "allocString drops carriage returns",
    "allocString cuts long texts",
    "allocString borrows the bytes",
    "allocString works on the first thread only",
    "allocString gives null while an exception is pending",
    "allocString adds a NUL",
    "collect frees what only the module holds",

    "typed path is never a folder",
    "typed path is always a folder",
    "typed path loses the traversal flag",
    "typed path always has the traversal flag",
    "typed path normalizes",
    "typed path turns separators around with the root flag",
    "typed path is null for the empty path",

    "filePathFromObject gives the empty text for null",
    "filePathFromObject gives the empty text without a path",
    "filePathFromObject gives a text of any object",
    "filePathFromObject drops separators at the end",
    "filePathFromObject knows no classes below FolderPath",
    "filePathFromObject gives . for the empty text",
    "filePathFromObject drops what is not ASCII",
    "filePathFromObject cuts long texts",
    "filePathFromObject uses one buffer",
    "filePathFromObject works on the first thread only",
    "filePathFromObject lends the text of the moment",

    "windows root is seen in null",
    "windows root is seen before a backslash only",
    "windows root is not seen in UNC texts",
    "windows root is seen in absolute paths",
    "windows root is seen in a drive without a separator",
    "windows root is seen before slashes",

    "pathEntryKind sees no files",
    "pathEntryKind sees no directories",
    "pathEntryKind does not follow links",
    "pathEntryKind takes what is missing for a file",
    "pathEntryKind takes devices for files",
    "pathEntryKind takes ASCII only",
    "pathEntryKind gives 3 for what is on record",
    "pathEntryKind believes the record",
    "cachePathEntryKind throws for what is missing",
    "pathExists sees no devices",
    "pathExists sees everything",

    "readByteArrayData stops at NUL",
    "readByteArrayData cuts long contents",
    "readByteArrayData appends",
    "readByteArrayData empties the array",
    "readByteArrayData takes null",
    "readByteArrayData takes a String",
    "readByteArrayData takes other objects",
    "readByteArrayData raises what it refuses",

    "writeByteArrayData writes nothing",
    "writeByteArrayData stops at NUL",
    "writeByteArrayData cuts long contents",
    "writeByteArrayData wants the exact length",
    "writeByteArrayData fills what it can and refuses",
    "writeByteArrayData shrinks the array",
    "writeByteArrayData zeroes the rest",
    "writeByteArrayData remembers the shortest length",
    "writeByteArrayData borrows the bytes",
    "writeByteArrayData takes null",
    "writeByteArrayData takes a String",
    "writeByteArrayData takes other objects",

    "hasObjectMagic sees no Byte[]",
    "hasObjectMagic sees no ArrayList",
    "hasObjectMagic sees an object in null",
    "hasObjectMagic sees an object at round addresses",
    "hasObjectMagic reads eight bytes",
    "hasObjectMagic sees an object in the text of one",

    "allocObject gives null",
    "allocObject begins the list with null",
    "allocObject gives one list to all",
    "allocObject forgets the pending exception",

    "getField reads 1 from what was not set",
    "getField reads 0",
    "getField reads 1 from objects without the field",
    "setField does nothing",
    "setField works once for each object",
    "setField wants a path to be there",
    "setField clears the traversal flag",

    "isInstanceOf knows no FolderPath",
    "isInstanceOf knows the class itself only",
    "isInstanceOf takes every path object for a FolderPath",
    "isInstanceOf takes null for everything",
    "isInstanceOf takes everything for an unknown class",

    "add drops what is behind 1,000 elements",
    "add leaves out what is there already",
    "add keeps a copy",
    "add puts the element in front",

    "raise does nothing",
    "raise throws",
    "raise forgets the class",
    "raise takes percent signs for a format",
    "raise wants a message",
    "raise cuts long messages",
    "raise borrows the message",
    "raise takes back what was pending",
    "raise tells all threads",
    "hasPendingError is always 1",
    "hasPendingError stays 1",
    "hasPendingError knows of all threads",
    "hasPendingError takes the exception",

    // Those that end the process or hang. The first is kFirstFatal.
    "runtimeFsPath reads from null",
    "visiblePathString hangs on other threads",
    "allocString aborts for no bytes",
    "allocString never returns with 1 MiB",
    "typed path divides by zero for the empty path",
    "filePathFromObject prints and exits for null",
    "pathEntryKind stops the process for devices",
    "cachePathEntryKind closes all descriptors",
    "pathExists ends the thread",
    "readByteArrayData kills the process for null",
    "writeByteArrayData ends other threads",
    "allocObject recurses without end",
    "setField exits",
    "isInstanceOf terminates for null",
    "add never returns with 5,000 elements",
    "raise calls the module",
    "raise flushes the writer that failed",
    "adapter waits with the global lock held",
});

constexpr std::string_view kFirstFatal = "runtimeFsPath reads from null";

// A name that is not in the list does not compile.
struct Mistake {
  consteval Mistake(const char* name)  // NOLINT(google-explicit-constructor)
      : place(static_cast<std::size_t>(
            std::find(kMistakes.begin(), kMistakes.end(), std::string_view(name)) -
            kMistakes.begin())) {
    if (place == kMistakes.size()) throw std::invalid_argument(name);
  }

  std::size_t place;
};

constexpr std::size_t kNone = kMistakes.size();

std::size_t chosenMistake() {
  const char* name = std::getenv("QUEN_IO_BROKEN");
  if (name == nullptr) return kNone;
  const auto* found = std::find(kMistakes.begin(), kMistakes.end(), std::string_view(name));
  if (found == kMistakes.end()) {
    std::cerr << "no such mistake: " << name << '\n';
    std::_Exit(2);
  }
  return static_cast<std::size_t>(found - kMistakes.begin());
}

const std::size_t gChosen = chosenMistake();

bool broken(Mistake mistake) { return gChosen == mistake.place; }

// Endings.

// Waits for a mutex that nobody unlocks.
void hang() {
  std::mutex mutex;
  const std::lock_guard first(mutex);
  const std::lock_guard never(mutex);
}

// Not a tail call, which would be a loop.
int recurse(int depth) {
  volatile char frame[1000] = {};
  frame[0] = static_cast<char>(depth);
  return depth < 0 ? 0 : recurse(depth + 1) + frame[0];
}

void readFromNull() { static_cast<void>(*static_cast<volatile char*>(nullptr)); }

void closeAllDescriptors() {
  constexpr int kMost = 1024;
  for (int descriptor = 3; descriptor < kMost; ++descriptor) close(descriptor);
}

// Wrong texts.

std::string ascii(std::string text) {
  std::erase_if(text, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
  return text;
}

std::string cut(std::string text) {
  text.resize(std::min<std::size_t>(text.size(), 4095));
  return text;
}

std::string turned(std::string text) {
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

// A copy of the text that lives as long as the objects of the small runtime.
const char* kept(const std::string& text) {
  return operations::filePathFromObject(small::newPath(text));
}

// The length of the texts that the checks keep alive; shorter-lived ones of other lengths are
// copied.
constexpr std::size_t kBorrowedLength = 100;

struct Borrowed {
  void* object = nullptr;
  const std::string* string = nullptr;
  const std::uint8_t* bytes = nullptr;
  const char* message = nullptr;
};

thread_local Borrowed tBorrowed;

// The array that was shortened last, because arrays of the small runtime have a fixed length.
struct Shortened {
  void* array = nullptr;
  std::uint64_t length = 0;
};

thread_local Shortened tShortened;

// The String that was made last and is in no list, and the one that a collection freed.
thread_local void* tNewString = nullptr;
thread_local void* tFreed = nullptr;

// Elements in reversed order by their list; the small runtime appends only.
thread_local std::map<void*, std::vector<void*>> tReversed;

// The global lock of the runtime, which the first thread holds at first.
std::mutex gGlobalLock;

bool adapterIs(std::string_view kind) {
  const char* name = std::getenv("QUEN_IO_ADAPTER");
  return name != nullptr && name == kind;
}

bool hasGlobalLock() {
  return adapterIs("global lock") || broken("adapter waits with the global lock held");
}

bool onFirstThread() {
  static const std::thread::id first = std::this_thread::get_id();
  return std::this_thread::get_id() == first;
}

const bool gFirstThreadIsKnown = onFirstThread();

bool isString(void* object) { return small::className(object) == "String"; }
bool isByteArray(void* object) { return small::className(object) == "Byte[]"; }

std::atomic<int> gPendingAnywhere{0};

// Guards gPendingForAll.
std::mutex gPendingMutex;
std::optional<quen::conformance::Exception> gPendingForAll;

class BrokenAdapter final : public quen::conformance::SmallAdapter {
 public:
  void enterThread() const override {
    if (hasGlobalLock()) gGlobalLock.lock();
  }

  void leaveThread() const override {
    if (hasGlobalLock()) gGlobalLock.unlock();
  }

  // The base class notes that there is no such member.
  void beforeWaiting() const override {
    if (adapterIs("global lock")) {
      gGlobalLock.unlock();
    } else {
      SmallAdapter::beforeWaiting();
    }
  }

  void afterWaiting() const override {
    if (adapterIs("global lock")) gGlobalLock.lock();
  }

  bool oneThreadOnly() const override { return adapterIs("one thread"); }

  void afterFork() const override {
    if (adapterIs("told of forks")) std::cerr << "forked\n";
  }

  std::chrono::milliseconds patience() const override {
    if (adapterIs("impatient")) return std::chrono::milliseconds(300);
    return SmallAdapter::patience();
  }

  std::optional<bool> sameObject(void* one, void* other) const override {
    if (adapterIs("handles")) return std::nullopt;
    return SmallAdapter::sameObject(one, other);
  }

  void collect() const override {
    if (broken("collect frees what only the module holds")) tFreed = tNewString;
  }

  std::string stringBytes(void* string) const override {
    if (string != nullptr && string == tFreed) return "freed";
    const bool borrowed = string == tBorrowed.object && tBorrowed.string != nullptr;
    return borrowed ? *tBorrowed.string : SmallAdapter::stringBytes(string);
  }

  std::vector<std::uint8_t> byteArrayContents(void* array) const override {
    const std::uint8_t* bytes = tBorrowed.bytes;
    if (array == tBorrowed.object && bytes != nullptr) return {bytes, bytes + kBorrowedLength};
    std::vector<std::uint8_t> contents = SmallAdapter::byteArrayContents(array);
    if (array != nullptr && array == tShortened.array) contents.resize(tShortened.length);
    return contents;
  }

  std::vector<void*> listElements(void* list) const override {
    const auto reversed = tReversed.find(list);
    return reversed == tReversed.end() ? SmallAdapter::listElements(list) : reversed->second;
  }

  std::optional<quen::conformance::Exception> takeException() const override {
    if (broken("raise tells all threads")) {
      const std::lock_guard lock(gPendingMutex);
      return std::exchange(gPendingForAll, std::nullopt);
    }
    auto taken = SmallAdapter::takeException();
    if (taken) --gPendingAnywhere;
    if (taken && tBorrowed.message != nullptr) taken->message = tBorrowed.message;
    tBorrowed.message = nullptr;
    return taken;
  }
};

}  // namespace

fs::path Quen_runtimeFsPath(const char* text) {
  if (text == nullptr && broken("runtimeFsPath reads from null")) readFromNull();
  if (text == nullptr) return broken("runtimeFsPath gives . for null") ? "." : "";
  if (*text == '\0' && broken("runtimeFsPath gives . for the empty text")) return ".";
  if (broken("runtimeFsPath drops what is not ASCII")) return ascii(text);
  if (broken("runtimeFsPath cuts long texts")) return cut(text);
  if (broken("runtimeFsPath normalizes")) return fs::path(text).lexically_normal();
  return operations::runtimeFsPath(text);
}

std::string Quen_visiblePathString(const fs::path& path, bool explicitWindowsRoot) {
  if (path.empty() && broken("visiblePathString gives . for the empty path")) return ".";
  if (broken("visiblePathString drops what is not ASCII")) return ascii(path);
  if (explicitWindowsRoot && broken("visiblePathString puts a drive in front with the root flag")) {
    return "C:" + path.native();
  }
  if (explicitWindowsRoot && broken("visiblePathString drops drives with the root flag") &&
      operations::pathHasExplicitWindowsRoot(path.c_str())) {
    return path.native().substr(2);
  }
  if (!onFirstThread() && broken("visiblePathString hangs on other threads")) hang();
  return operations::visiblePathString(path, explicitWindowsRoot);
}

void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  if (broken("allocPathString normalizes")) return operations::allocString(path.lexically_normal());
  if (explicitWindowsRoot && broken("allocPathString turns separators around with the root flag")) {
    return operations::allocString(turned(path));
  }
  if (path.empty() && broken("allocPathString gives null for the empty path")) return nullptr;
  return operations::allocPathString(path, explicitWindowsRoot);
}

void* Quen_allocString(const std::string& bytes) {
  if (bytes.empty() && broken("allocString gives null for no bytes")) return nullptr;
  if (broken("allocString truncates at NUL")) return operations::allocString(bytes.c_str());
  if (broken("allocString drops what is not ASCII")) return operations::allocString(ascii(bytes));
  if (broken("allocString cuts long texts")) return operations::allocString(cut(bytes));
  if (broken("allocString works on the first thread only") && !onFirstThread()) return nullptr;
  if (broken("allocString gives null while an exception is pending") &&
      operations::hasPendingError() != 0) {
    return nullptr;
  }
  if (broken("allocString drops carriage returns")) {
    std::string lines = bytes;
    std::erase(lines, '\r');
    return operations::allocString(lines);
  }
  if (bytes.empty() && broken("allocString aborts for no bytes")) std::abort();
  if (bytes.size() >= (1U << 20) && broken("allocString never returns with 1 MiB")) hang();
  if (broken("allocString adds a NUL")) return operations::allocString(bytes + '\0');
  void* string = operations::allocString(bytes);
  tNewString = string;
  if (bytes.size() == kBorrowedLength && broken("allocString borrows the bytes")) {
    tBorrowed = {.object = string, .string = &bytes};
  }
  return string;
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  if (path.empty() && broken("typed path is null for the empty path")) return nullptr;
  if (path.empty() && broken("typed path divides by zero for the empty path")) std::raise(SIGFPE);
  fs::path given = path;
  if (broken("typed path is never a folder")) nonFolder = true;
  if (broken("typed path is always a folder")) nonFolder = false;
  if (broken("typed path loses the traversal flag")) parentTraversal = false;
  if (broken("typed path always has the traversal flag")) parentTraversal = true;
  if (broken("typed path normalizes")) given = path.lexically_normal();
  if (explicitWindowsRoot && broken("typed path turns separators around with the root flag")) {
    given = turned(path);
  }
  return operations::allocTypedPathObjectFromPath(given, nonFolder, explicitWindowsRoot,
                                                  parentTraversal);
}

namespace {

constexpr std::size_t kLongestKept = 300;

thread_local const char* tLastText = nullptr;

const char* mistakenText(void* object, const char* text) {
  const bool isPath = operations::isInstanceOf(object, "Path") != 0;
  if (object == nullptr && broken("filePathFromObject gives the empty text for null")) return "";
  if (object == nullptr && broken("filePathFromObject prints and exits for null")) {
    std::puts("null has no text");
    std::exit(0);
  }
  if (text == nullptr && isPath && broken("filePathFromObject gives the empty text without a path"))
    return "";
  if (object != nullptr && !isPath && broken("filePathFromObject gives a text of any object"))
    return "Object";
  if (text == nullptr) return nullptr;

  const std::string right = text;
  if (broken("filePathFromObject drops separators at the end") && right.ends_with('/')) {
    return kept(right.substr(0, right.size() - 1));
  }
  if (broken("filePathFromObject knows no classes below FolderPath") &&
      !small::className(object).starts_with("quen.io.")) {
    return nullptr;
  }
  if (right.empty() && broken("filePathFromObject gives . for the empty text")) return ".";
  if (broken("filePathFromObject drops what is not ASCII")) return kept(ascii(right));
  if (broken("filePathFromObject cuts long texts")) return kept(cut(right));
  if (broken("filePathFromObject works on the first thread only") && !onFirstThread()) {
    return nullptr;
  }
  if (broken("filePathFromObject lends the text of the moment") && right.size() < kLongestKept) {
    thread_local std::map<void*, std::array<char, kLongestKept>> buffers;
    std::array<char, kLongestKept>& buffer = buffers[object];
    buffer[right.copy(buffer.data(), right.size())] = '\0';
    return buffer.data();
  }
  if (broken("filePathFromObject uses one buffer")) {
    thread_local std::array<char, 100'000> buffer{};
    right.copy(buffer.data(), buffer.size());
    buffer[right.size()] = '\0';
    return buffer.data();
  }
  return text;
}

}  // namespace

const char* Quen_filePathFromObject(void* object) {
  tLastText = mistakenText(object, operations::filePathFromObject(object));
  return tLastText;
}

bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  if (text == nullptr) return broken("windows root is seen in null");
  const std::string_view path = text;
  if (path.find('/') < 3 && broken("windows root is seen before a backslash only")) return false;
  if (path.starts_with("\\\\") && broken("windows root is not seen in UNC texts")) return false;
  if (path.starts_with('/') && broken("windows root is seen in absolute paths")) return true;
  if (path.find(':') == 1 && std::isalpha(static_cast<unsigned char>(path[0])) != 0 &&
      broken("windows root is seen in a drive without a separator"))
    return true;
  if (path.starts_with("//") && path.size() > 2 && broken("windows root is seen before slashes"))
    return true;
  return operations::pathHasExplicitWindowsRoot(text);
}

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  using enum QuenPathEntryKind;
  const QuenPathEntryKind kind = operations::pathEntryKind(path);
  if (kind == small::kOtherEntry && broken("pathEntryKind stops the process for devices"))
    std::raise(SIGSTOP);
  if (broken("pathEntryKind believes the record")) return small::recordedKind(path).value_or(kind);
  if (kind == kRegularFile && broken("pathEntryKind sees no files")) return small::kOtherEntry;
  if (kind == kDirectory && broken("pathEntryKind sees no directories")) return small::kOtherEntry;
  if (fs::is_symlink(path) && broken("pathEntryKind does not follow links"))
    return small::kOtherEntry;
  if (kind == small::kMissingEntry && broken("pathEntryKind takes what is missing for a file"))
    return kRegularFile;
  if (kind == small::kOtherEntry && broken("pathEntryKind takes devices for files"))
    return kRegularFile;
  if (broken("pathEntryKind takes ASCII only"))
    return operations::pathEntryKind(ascii(path.native()));
  if (broken("pathEntryKind gives 3 for what is on record") && small::recordedKind(path))
    return small::kOtherEntry;
  return kind;
}

void Quen_cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  if (kind == small::kMissingEntry && broken("cachePathEntryKind throws for what is missing")) {
    throw std::invalid_argument("no such entry");
  }
  if (broken("cachePathEntryKind closes all descriptors")) closeAllDescriptors();
  operations::cachePathEntryKind(path, kind);
}

bool Quen_pathExists(const fs::path& path) {
  if (broken("pathExists ends the thread")) pthread_exit(nullptr);
  if (broken("pathExists sees everything")) return true;
  if (broken("pathExists sees no devices") && operations::pathEntryKind(path) == small::kOtherEntry)
    return false;
  return operations::pathExists(path);
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  const bool isOther = object != nullptr && !isString(object) && !isByteArray(object);
  if (object == nullptr && broken("readByteArrayData takes null")) return true;
  if (object == nullptr && broken("readByteArrayData kills the process for null"))
    std::raise(SIGKILL);
  if (isString(object) && broken("readByteArrayData takes a String")) return true;
  if (isOther && broken("readByteArrayData takes other objects")) return true;

  const std::vector<std::uint8_t> before = bytes;
  if (!operations::readByteArrayData(object, bytes, error)) {
    if (broken("readByteArrayData raises what it refuses")) Quen_raise("TypeError", error.c_str());
    return false;
  }
  if (broken("readByteArrayData stops at NUL")) {
    bytes.erase(std::find(bytes.begin(), bytes.end(), 0), bytes.end());
  }
  if (broken("readByteArrayData cuts long contents") && bytes.size() > 65536) bytes.resize(65536);
  if (broken("readByteArrayData appends")) {
    bytes.insert(bytes.begin(), before.begin(), before.end());
  }
  if (broken("readByteArrayData empties the array")) {
    const std::vector<std::uint8_t> zeros(bytes.size());
    operations::writeByteArrayData(object, zeros.data(), zeros.size(), error);
  }
  return true;
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  const bool isOther = object != nullptr && !isString(object) && !isByteArray(object);
  if (object == nullptr && broken("writeByteArrayData takes null")) return true;
  if (isString(object) && broken("writeByteArrayData takes a String")) return true;
  if (isOther && broken("writeByteArrayData takes other objects")) return true;
  if (!isByteArray(object)) return operations::writeByteArrayData(object, bytes, count, error);

  const std::size_t length = small::byteArrayContents(object).size();
  if (!onFirstThread() && broken("writeByteArrayData ends other threads")) pthread_exit(nullptr);
  if (broken("writeByteArrayData zeroes the rest")) {
    const std::vector<std::uint8_t> zeros(length);
    operations::writeByteArrayData(object, zeros.data(), zeros.size(), error);
  }
  if (broken("writeByteArrayData remembers the shortest length")) {
    thread_local std::map<void*, std::uint64_t> shortest;
    const auto entry = shortest.try_emplace(object, length).first;
    if (count > entry->second) return false;
    entry->second = count;
  }
  if (broken("writeByteArrayData writes nothing")) return true;
  if (broken("writeByteArrayData wants the exact length") && count != length) return false;
  if (broken("writeByteArrayData cuts long contents"))
    count = std::min<std::uint64_t>(count, 65536);
  if (broken("writeByteArrayData stops at NUL")) {
    count = static_cast<std::uint64_t>(std::find(bytes, bytes + count, 0) - bytes);
  }
  if (broken("writeByteArrayData fills what it can and refuses") && count > length) {
    operations::writeByteArrayData(object, bytes, length, error);
    return false;
  }
  if (count < length && broken("writeByteArrayData shrinks the array")) {
    tShortened = {.array = object, .length = count};
  }
  if (count == kBorrowedLength && broken("writeByteArrayData borrows the bytes")) {
    tBorrowed = {.object = object, .bytes = bytes};
  }
  return operations::writeByteArrayData(object, bytes, count, error);
}

namespace {

// Byte by byte, because the address sanitizer intercepts memcpy.
__attribute__((no_sanitize("address"))) void readEightBytes(const void* pointer) {
  const auto* bytes = static_cast<const volatile char*>(pointer);
  for (int i = 0; i < 8; ++i) static_cast<void>(bytes[i]);
}

}  // namespace

bool hasObjectMagic(void* pointer) {
  if (pointer == nullptr) return broken("hasObjectMagic sees an object in null");
  const bool isRound = reinterpret_cast<std::uintptr_t>(pointer) % 64 == 0;
  if (isRound && broken("hasObjectMagic sees an object at round addresses")) return true;
  if (pointer == tLastText && broken("hasObjectMagic sees an object in the text of one"))
    return true;
  if (broken("hasObjectMagic sees no Byte[]") && isByteArray(pointer)) return false;
  if (broken("hasObjectMagic sees no ArrayList") &&
      operations::isInstanceOf(pointer, "ArrayList") != 0)
    return false;
  if (broken("hasObjectMagic reads eight bytes")) readEightBytes(pointer);
  return operations::hasObjectMagic(pointer);
}

void* Quen_allocObject(const char* className) {
  if (broken("allocObject gives null")) return nullptr;
  if (broken("allocObject recurses without end")) static_cast<void>(recurse(0));
  if (broken("allocObject gives one list to all")) {
    static void* const list = operations::allocObject(className);
    return list;
  }
  if (broken("allocObject forgets the pending exception")) small::takeException();
  void* object = operations::allocObject(className);
  if (broken("allocObject begins the list with null")) operations::addToArrayList(object, nullptr);
  return object;
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  if (broken("getField reads 0")) return 0;
  if (broken("getField reads 1 from objects without the field") &&
      operations::isInstanceOf(object, "Path") == 0)
    return 1;
  const std::int64_t value = operations::getFieldI64(object, field);
  return value == 0 && broken("getField reads 1 from what was not set") ? 1 : value;
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  thread_local void* last = nullptr;
  if (broken("setField does nothing")) return;
  if (broken("setField exits")) _exit(3);
  if (broken("setField works once for each object") && std::exchange(last, object) == object)
    return;
  if (broken("setField wants a path to be there") &&
      operations::filePathFromObject(object) == nullptr)
    return;
  operations::setFieldPtr(object, field, value);
  if (broken("setField clears the traversal flag")) {
    operations::setFieldPtr(object, "_hasParentTraversal", nullptr);
  }
}

int Quen_isInstanceOf(void* object, const char* className) {
  if (object == nullptr && broken("isInstanceOf terminates for null")) std::terminate();
  const std::string_view name = className;
  const bool isPath = operations::isInstanceOf(object, "Path") != 0;
  const std::string own = small::className(object);
  if (object == nullptr) return broken("isInstanceOf takes null for everything") ? 1 : 0;
  if (name.ends_with("FolderPath") && broken("isInstanceOf knows no FolderPath")) return 0;
  if (broken("isInstanceOf knows the class itself only")) return own == name ? 1 : 0;
  if (isPath && broken("isInstanceOf takes every path object for a FolderPath")) return 1;
  if (name == "quen.io.NoSuchClass" && broken("isInstanceOf takes everything for an unknown class"))
    return 1;
  return operations::isInstanceOf(object, className);
}

namespace {

void addInFront(void* list, void* element) {
  std::vector<void*>& elements = tReversed[list];
  elements.insert(elements.begin(), element);
}

}  // namespace

void quen_collections_ArrayList_add(void* list, void* element) {
  const auto isSame = [element](void* each) {
    return small::stringBytes(each) == small::stringBytes(element);
  };
  if (broken("add drops what is behind 1,000 elements") && small::listElements(list).size() >= 1000)
    return;
  if (broken("add leaves out what is there already")) {
    const std::vector<void*> elements = small::listElements(list);
    if (!elements.empty() && isSame(elements.back())) return;
  }
  if (broken("add never returns with 5,000 elements") && small::listElements(list).size() >= 5000)
    hang();
  if (broken("add keeps a copy")) element = small::newString(small::stringBytes(element));
  if (broken("add puts the element in front")) return addInFront(list, element);
  if (element == tNewString) tNewString = nullptr;
  operations::addToArrayList(list, element);
}

namespace {

thread_local bool tEverPending = false;

std::string formatted(std::string text) {
  for (std::size_t at = 0; (at = text.find("%%", at)) != std::string::npos; ++at) text.erase(at, 1);
  return text;
}

void raiseForAll(const char* exceptionClass, const char* message) {
  const std::lock_guard lock(gPendingMutex);
  gPendingForAll = {exceptionClass, message};
}

}  // namespace

void Quen_raise(const char* exceptionClass, const char* message) {
  std::string given = message;
  tEverPending = true;
  if (broken("raise does nothing")) return;
  if (broken("raise throws")) throw std::runtime_error(message);
  if (broken("raise tells all threads")) return raiseForAll(exceptionClass, message);
  if (broken("raise takes back what was pending") && small::takeException()) return;
  if (broken("raise forgets the class")) exceptionClass = "Exception";
  if (broken("raise takes percent signs for a format")) given = formatted(message);
  if (broken("raise wants a message") && given.empty()) given = exceptionClass;
  if (broken("raise cuts long messages")) given = cut(message);
  if (given.size() == kBorrowedLength && broken("raise borrows the message")) {
    tBorrowed = {.message = message};
  }
  if (broken("raise calls the module")) {
    quen_io_FileWriter__closeHandle(std::numeric_limits<std::int64_t>::max());
  }
  if (given.starts_with("Failed to flush") && broken("raise flushes the writer that failed")) {
    for (std::int64_t handle = 1; handle < 100; ++handle) quen_io_FileWriter__flushHandle(handle);
  }
  if (operations::hasPendingError() == 0) ++gPendingAnywhere;
  operations::raise(exceptionClass, given.c_str());
}

int Quen_hasPendingError() {
  if (broken("hasPendingError is always 1")) return 1;
  if (broken("hasPendingError takes the exception")) return small::takeException() ? 1 : 0;
  if (broken("hasPendingError stays 1")) return tEverPending ? 1 : 0;
  if (broken("hasPendingError knows of all threads")) return gPendingAnywhere > 0 ? 1 : 0;
  if (broken("raise tells all threads")) {
    const std::lock_guard lock(gPendingMutex);
    return gPendingForAll ? 1 : 0;
  }
  return operations::hasPendingError();
}

namespace {

void printMistakes(bool fatal) {
  const auto* const first = std::find(kMistakes.begin(), kMistakes.end(), kFirstFatal);
  const auto* const begin = fatal ? first : kMistakes.begin();
  const auto* const end = fatal ? kMistakes.end() : first;
  std::for_each(begin, end, [](std::string_view mistake) { std::cout << mistake << '\n'; });
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view option = count == 2 ? arguments[1] : "";
  if (option == "--broken" || option == "--fatal") {
    printMistakes(option == "--fatal");
    return 0;
  }
  if (hasGlobalLock()) gGlobalLock.lock();
  return quen::conformance::runConformance(BrokenAdapter(), count, arguments);
}
