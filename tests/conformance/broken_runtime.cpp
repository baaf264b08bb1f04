// The small runtime with one of many mistakes, which the environment variable QUEN_IO_BROKEN names.
// Without it there is none. Called with --broken it tells the names, else it runs the conformance
// kit, which has to notice every one.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <limits>
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

    "windows root is seen in null",
    "windows root is seen before a backslash only",
    "windows root is not seen in UNC texts",
    "windows root is seen in absolute paths",

    "pathEntryKind sees no files",
    "pathEntryKind sees no directories",
    "pathEntryKind does not follow links",
    "pathEntryKind takes what is missing for a file",
    "pathEntryKind takes devices for files",
    "pathEntryKind takes ASCII only",
    "pathEntryKind gives 3 for what is on record",
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

    "raise does nothing",
    "raise throws",
    "raise forgets the class",
    "raise takes percent signs for a format",
    "raise wants a message",
    "raise cuts long messages",
    "raise borrows the message",
    "raise takes back what was pending",
    "raise calls the module",
    "raise tells all threads",
    "hasPendingError is always 1",
    "hasPendingError stays 1",
    "hasPendingError knows of all threads",
});

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

// Mistaken texts.

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

// A text that stays, as those of the small runtime do.
const char* kept(const std::string& text) {
  return operations::filePathFromObject(small::newPath(text));
}

// What lives as long as the checks look at it. Any other length may be gone before, and is copied.
constexpr std::size_t kBorrowedLength = 100;

struct Borrowed {
  void* object = nullptr;
  const std::string* string = nullptr;
  const std::uint8_t* bytes = nullptr;
  const char* message = nullptr;
};

thread_local Borrowed tBorrowed;

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
  std::string stringBytes(void* string) const override {
    const bool borrowed = string == tBorrowed.object && tBorrowed.string != nullptr;
    return borrowed ? *tBorrowed.string : SmallAdapter::stringBytes(string);
  }

  std::vector<std::uint8_t> byteArrayContents(void* array) const override {
    const std::uint8_t* bytes = tBorrowed.bytes;
    if (array != tBorrowed.object || bytes == nullptr) {
      return SmallAdapter::byteArrayContents(array);
    }
    return {bytes, bytes + kBorrowedLength};
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
  void* string = operations::allocString(bytes);
  if (bytes.size() == kBorrowedLength && broken("allocString borrows the bytes")) {
    tBorrowed = {.object = string, .string = &bytes};
  }
  return string;
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  if (path.empty() && broken("typed path is null for the empty path")) return nullptr;
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

thread_local const char* tLastText = nullptr;

const char* mistakenText(void* object, const char* text) {
  const bool isPath = operations::isInstanceOf(object, "Path") != 0;
  if (object == nullptr && broken("filePathFromObject gives the empty text for null")) return "";
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
  return operations::pathHasExplicitWindowsRoot(text);
}

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  using enum QuenPathEntryKind;
  const QuenPathEntryKind kind = operations::pathEntryKind(path);
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
  operations::cachePathEntryKind(path, kind);
}

bool Quen_pathExists(const fs::path& path) {
  if (broken("pathExists sees everything")) return true;
  if (broken("pathExists sees no devices") && operations::pathEntryKind(path) == small::kOtherEntry)
    return false;
  return operations::pathExists(path);
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  const bool isOther = object != nullptr && !isString(object) && !isByteArray(object);
  if (object == nullptr && broken("readByteArrayData takes null")) return true;
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
  if (count == kBorrowedLength && broken("writeByteArrayData borrows the bytes")) {
    tBorrowed = {.object = object, .bytes = bytes};
  }
  return operations::writeByteArrayData(object, bytes, count, error);
}

namespace {

// One by one, since a sanitizer would see through it otherwise.
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
  const std::int64_t value = operations::getFieldI64(object, field);
  return value == 0 && broken("getField reads 1 from what was not set") ? 1 : value;
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  thread_local void* last = nullptr;
  if (broken("setField does nothing")) return;
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
  if (operations::hasPendingError() == 0) ++gPendingAnywhere;
  operations::raise(exceptionClass, given.c_str());
}

int Quen_hasPendingError() {
  if (broken("hasPendingError is always 1")) return 1;
  if (broken("hasPendingError stays 1")) return tEverPending ? 1 : 0;
  if (broken("hasPendingError knows of all threads")) return gPendingAnywhere > 0 ? 1 : 0;
  if (broken("raise tells all threads")) {
    const std::lock_guard lock(gPendingMutex);
    return gPendingForAll ? 1 : 0;
  }
  return operations::hasPendingError();
}

int main(int count, char** arguments) {
  if (count == 2 && std::string_view(arguments[1]) == "--broken") {
    for (const std::string_view mistake : kMistakes) std::cout << mistake << '\n';
    return 0;
  }
  return quen::conformance::runConformance(BrokenAdapter(), std::cout);
}
