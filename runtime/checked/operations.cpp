// The operations that the module calls in place of the host's own: each calls the host's and looks
// at the result. What a result says is compared with what other operations say about it.

#include "quen/io/operations.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "runtime/checked/call.h"
#include "runtime/checked/host.h"
#include "runtime/parts/operations.h"

namespace fs = std::filesystem;
using quen::checked::Operation;
using quen::checked::shown;
namespace host = quen::checked::host;

namespace {

constexpr const char* kPath = "_path";
constexpr const char* kTraversal = "_hasParentTraversal";

// Longer Strings are not read back.
constexpr std::size_t kMostReadBack = 64 * std::size_t{1024};

std::string_view viewOf(const char* text) { return text == nullptr ? "" : text; }

std::string instead(const std::string& actual, const std::string& expected) {
  return shown(actual) + ", not " + shown(expected);
}

// Drive and UNC roots.

// Two backslashes without the name of a server may count as a root or not.
bool mayHaveWindowsRoot(const char* text) {
  return quen::parts::pathHasExplicitWindowsRoot(text) || viewOf(text).starts_with("\\\\");
}

// Objects.

bool isFolderPath(void* object) {
  return host::isInstanceOf(object, "FolderPath") != 0 ||
         host::isInstanceOf(object, "quen.io.FolderPath") != 0;
}

bool expectObject(const Operation& operation, void* object) {
  if (object == nullptr) {
    operation.report("gave null");
  } else if (!host::hasObjectMagic(object)) {
    operation.report("gave a result that hasObjectMagic takes for no object");
  } else {
    return true;
  }
  return false;
}

// Reading every String back would cost more than making it: the first ones of a thread are read
// back, then one in several. That number is odd, and most programs repeat themselves after an even
// one.
bool wantsToReadBack() {
  constexpr unsigned kFirst = 1024;
  constexpr unsigned kStep = 5;
  thread_local unsigned count = 0;
  ++count;
  return count <= kFirst || count % kStep == 0;
}

// No operation reads a String, but the text of a path object is that of its String.
void expectBytes(const Operation& operation, void* string, const std::string& bytes) {
  if (host::filePathFromObject(string) != nullptr) {
    operation.reportOf("Quen_filePathFromObject", "gave a text for a String");
  }
  if (host::getFieldI64(string, kTraversal) != 0) {
    operation.reportOf("Quen_getField_i64",
                       "gave a String, which lacks the field, another value than 0");
  }
  if (bytes.size() > kMostReadBack || bytes.find('\0') != std::string::npos) return;
  void* path = operation.call()->pathOfChecks();
  if (path == nullptr) return;

  host::setFieldPtr(path, kPath, string);
  const std::string_view found = viewOf(host::filePathFromObject(path));
  if (found != bytes) {
    operation.report("gave a String that a path object with this \"_path\" shows as ",
                     instead(std::string(found), bytes));
  }
  if (host::getFieldI64(path, kTraversal) == 0) {
    operation.reportOf("Quen_setField_ptr", "changed \"_hasParentTraversal\"");
  }
}

// `bytes` gives the bytes that the String has to hold, if they are wanted.
template <class Give>
void expectString(Operation& operation, void* string, Give bytes) {
  operation.check([&] {
    if (expectObject(operation, string) && wantsToReadBack()) {
      expectBytes(operation, string, bytes());
    }
  });
}

void expectPath(const Operation& operation, void* object, const std::string& text, bool nonFolder,
                bool parentTraversal) {
  if (!expectObject(operation, object)) return;
  if (isFolderPath(object) == nonFolder) {
    operation.report(nonFolder ? "gave a FolderPath with the flag nonFolder"
                               : "gave no FolderPath without the flag nonFolder");
  }
  if ((host::getFieldI64(object, kTraversal) != 0) != parentTraversal) {
    operation.report("gave an object whose \"_hasParentTraversal\" is not the flag given");
  }
  const std::string_view found = viewOf(host::filePathFromObject(object));
  if (found != text) {
    operation.report("gave an object of the text ", instead(std::string(found), text));
  }
  if (host::isInstanceOf(object, "quen.io.NoSuchClass") != 0) {
    operation.reportOf("Quen_isInstanceOf", "gave an object a class that does not exist");
  }
}

// Kinds of entries.

struct Entry {
  bool known = false;  // when neither is said, the system cannot tell either
  bool dangling = false;
  int kind = 0;  // 1 and 2 as in QuenPathEntryKind, 0 without an entry, 3 for all others

  bool operator==(const Entry&) const = default;
};

Entry entryAt(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    return {.known = true, .kind = S_ISREG(status.st_mode) ? 1 : S_ISDIR(status.st_mode) ? 2 : 3};
  }
  if (errno != ENOENT && errno != ENOTDIR) return {};
  return {.known = true, .dangling = ::lstat(path.c_str(), &status) == 0};
}

bool agrees(const Entry& entry, QuenPathEntryKind kind) {
  const bool isNamed =
      kind == QuenPathEntryKind::kRegularFile || kind == QuenPathEntryKind::kDirectory;
  if (!entry.known) return true;
  return isNamed ? static_cast<int>(kind) == entry.kind : entry.kind != 1 && entry.kind != 2;
}

// A dangling link may count as an entry.
bool agrees(const Entry& entry, bool exists) {
  return !entry.known || entry.dangling || exists == (entry.kind != 0);
}

// Whether the system contradicts the answer, which the entry can do by changing meanwhile: only an
// answer that is wrong twice, about an entry that stayed as it is, is a mistake.
template <class Answer, class Ask>
bool isContradicted(const fs::path& path, Answer answer, Ask askAgain) {
  const Entry first = entryAt(path);
  if (agrees(first, answer)) return false;
  const Answer again = quen::checked::settings().passive ? answer : askAgain(path);
  const Entry second = entryAt(path);
  return first == second && !agrees(second, again);
}

std::string kindsOf(const fs::path& path, int answer) {
  return std::to_string(answer) + " for " + shown(path.native()) + ", where the system has " +
         std::to_string(entryAt(path).kind);
}

// Byte[].

using Bytes = std::vector<std::uint8_t>;

// What a vector holds before the host reads into it. An answer that leaves it untouched, or adds to
// it, is a mistake; no Byte[] begins with these bytes by chance.
constexpr std::ptrdiff_t kLeftover = 16;

const Bytes& leftover() {
  static const Bytes bytes{0xD1, 0x5E, 0xA5, 0xED, 0xB0, 0x07, 0xC0, 0x1D,
                           0x0F, 0xF1, 0xCE, 0xAC, 0xAD, 0xE5, 0x7A, 0x3B};
  return bytes;
}

bool beginsWith(const Bytes& bytes, const Bytes& beginning) {
  return bytes.size() >= beginning.size() &&
         std::equal(beginning.begin(), beginning.end(), bytes.begin());
}

std::ptrdiff_t sizeOf(const Bytes& bytes) { return static_cast<std::ptrdiff_t>(bytes.size()); }

std::string sizesOf(std::uint64_t actual, std::uint64_t expected) {
  return std::to_string(actual) + " bytes, not " + std::to_string(expected);
}

// The contents; none when the host refuses the object.
std::optional<Bytes> contentsOf(void* object) {
  Bytes bytes;
  std::string error;
  if (!host::readByteArrayData(object, bytes, error)) return std::nullopt;
  return bytes;
}

// Reading whole arrays around every fill would make a program that fills a large array by small
// pieces quadratic. Each fill therefore earns as much reading as is in proportion to its bytes.
class ReadingBudget {
 public:
  bool allows(std::uint64_t count) {
    budget_ = std::min(budget_ + 2 * static_cast<std::int64_t>(count) + kFree, kMost);
    return budget_ > 0;
  }

  void spend(std::size_t bytes) { budget_ -= static_cast<std::int64_t>(bytes); }

 private:
  static constexpr std::int64_t kFree = 512;
  static constexpr std::int64_t kMost = std::int64_t{4} << 20;

  std::int64_t budget_ = 0;
};

thread_local ReadingBudget tBudget;

void expectRead(Operation& operation, void* object, const Bytes& bytes) {
  if (bytes == leftover()) return operation.report("gave true without setting the bytes");
  if (beginsWith(bytes, leftover())) {
    return operation.report("added to the bytes that it was to replace");
  }
  if (object == nullptr) return operation.report("gave true for null");
  operation.check([&] {
    if (!host::hasObjectMagic(object)) {
      operation.reportOf("hasObjectMagic", "gave false for a Byte[]");
    }
    if (!tBudget.allows(bytes.size())) return;
    const std::optional<Bytes> again = contentsOf(object);
    tBudget.spend(bytes.size());
    if (!again || *again != bytes) operation.report("changed the Byte[] that it read");
  });
}

void expectFilled(const Operation& operation, const std::optional<Bytes>& before,
                  const std::optional<Bytes>& after, const Bytes& given) {
  if (!after) return operation.report("filled what Quen_readByteArrayData refuses");
  if (!beginsWith(*after, given)) {
    operation.report("left an array that does not begin with the bytes given");
  }
  if (!before || given.size() > before->size()) return;
  if (after->size() != before->size()) {
    operation.report("changed the length of the array: ", sizesOf(after->size(), before->size()));
  } else if (!std::equal(after->begin() + sizeOf(given), after->end(),
                         before->begin() + sizeOf(given))) {
    operation.report("changed bytes of the array beyond those given");
  }
}

void expectRefused(const Operation& operation, const std::optional<Bytes>& before,
                   const std::optional<Bytes>& after, std::uint64_t count) {
  if (before && count <= before->size()) {
    operation.report("refused bytes that fit: ",
                     std::to_string(count) + " for " + std::to_string(before->size()));
  }
  if (before != after) operation.report("refused the bytes, but changed the array");
}

}  // namespace

fs::path Quen_runtimeFsPath(const char* text) {
  Operation operation("Quen_runtimeFsPath");
  fs::path path = operation.run([&] { return host::runtimeFsPath(text); });
  const std::string_view expected = viewOf(text);
  if (path.native() != expected && !mayHaveWindowsRoot(text)) {
    operation.report("gave the path ", instead(path, std::string(expected)));
  }
  return path;
}

std::string Quen_visiblePathString(const fs::path& path, bool explicitWindowsRoot) {
  Operation operation("Quen_visiblePathString");
  std::string text =
      operation.run([&] { return host::visiblePathString(path, explicitWindowsRoot); });
  if (text != path.native() && !mayHaveWindowsRoot(path.c_str())) {
    operation.report("gave ", instead(text, path));
  }
  return text;
}

void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  Operation operation("Quen_allocPathString");
  void* string = operation.run([&] { return host::allocPathString(path, explicitWindowsRoot); });
  expectString(operation, string,
               [&] { return host::visiblePathString(path, explicitWindowsRoot); });
  return string;
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  Operation operation("Quen_allocTypedPathObjectFromPath");
  void* object = operation.run([&] {
    return host::allocTypedPathObjectFromPath(path, nonFolder, explicitWindowsRoot,
                                              parentTraversal);
  });
  operation.check([&] {
    expectPath(operation, object, host::visiblePathString(path, explicitWindowsRoot), nonFolder,
               parentTraversal);
  });
  return object;
}

const char* Quen_filePathFromObject(void* object) {
  Operation operation("Quen_filePathFromObject");
  const char* text = operation.run([&] { return host::filePathFromObject(object); });
  if (text == nullptr || operation.call() == nullptr) return text;
  if (object == nullptr) operation.report("gave a text for null");
  operation.call()->watch("Quen_filePathFromObject", text,
                          "gave a text that changed before the entry point returned");
  operation.check([&] {
    if (host::hasObjectMagic(const_cast<char*>(text))) {
      operation.reportOf("hasObjectMagic", "gave true for the text of a path object");
    }
  });
  return text;
}

bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  Operation operation("Quen_pathHasExplicitWindowsRoot");
  const bool answer = operation.run([&] { return host::pathHasExplicitWindowsRoot(text); });
  if (answer && !mayHaveWindowsRoot(text)) operation.report("gave true for ", shown(text));
  if (!answer && quen::parts::pathHasExplicitWindowsRoot(text))
    operation.report("gave false for ", shown(text));
  return answer;
}

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  Operation operation("Quen_pathEntryKind");
  const QuenPathEntryKind kind = operation.run([&] { return host::pathEntryKind(path); });
  if (isContradicted(path, kind, host::pathEntryKind)) {
    operation.report("gave the kind ", kindsOf(path, static_cast<int>(kind)));
  }
  return kind;
}

void Quen_cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  Operation operation("Quen_cachePathEntryKind");
  operation.run([&] { host::cachePathEntryKind(path, kind); });
}

bool Quen_pathExists(const fs::path& path) {
  Operation operation("Quen_pathExists");
  const bool exists = operation.run([&] { return host::pathExists(path); });
  if (isContradicted(path, exists, host::pathExists)) {
    operation.report(
        exists ? "gave true where there is no entry: " : "gave false where there is an entry: ",
        shown(path.native()));
  }
  return exists;
}

void* Quen_allocString(const std::string& bytes) {
  Operation operation("Quen_allocString");
  void* string = operation.run([&] { return host::allocString(bytes); });
  expectString(operation, string, [&]() -> const std::string& { return bytes; });
  return string;
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  Operation operation("Quen_readByteArrayData");
  bytes = leftover();
  const bool read = operation.run([&] { return host::readByteArrayData(object, bytes, error); });
  if (!read) {
    bytes.clear();
    return false;
  }
  expectRead(operation, object, bytes);
  if (beginsWith(bytes, leftover())) bytes.erase(bytes.begin(), bytes.begin() + kLeftover);
  return true;
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  Operation operation("Quen_writeByteArrayData");
  const bool looks = tBudget.allows(count);
  std::optional<Bytes> before;
  if (looks) operation.check([&] { before = contentsOf(object); });

  const bool filled =
      operation.run([&] { return host::writeByteArrayData(object, bytes, count, error); });

  if (filled && object == nullptr) operation.report("gave true for null");
  if (!looks) return filled;
  operation.check([&] {
    const std::optional<Bytes> after = contentsOf(object);
    tBudget.spend((before ? before->size() : 0) + (after ? after->size() : 0));
    if (filled) {
      expectFilled(operation, before, after, Bytes(bytes, bytes + count));
    } else {
      expectRefused(operation, before, after, count);
    }
  });
  return filled;
}

bool hasObjectMagic(void* pointer) {
  Operation operation("hasObjectMagic");
  const bool answer = operation.run([&] { return host::hasObjectMagic(pointer); });
  if (pointer == nullptr) {
    if (answer) operation.report("gave true for null");
    return answer;
  }
  if (!answer && operation.call() != nullptr) {
    operation.call()->watch("operand", static_cast<const char*>(pointer),
                            "changed before the entry point returned");
  }
  operation.check([&] {
    if (host::hasObjectMagic(nullptr)) operation.report("gave true for null");
  });
  return answer;
}

void* Quen_allocObject(const char* className) {
  Operation operation("Quen_allocObject");
  void* object = operation.run([&] { return host::allocObject(className); });
  operation.check([&] {
    if (!expectObject(operation, object)) return;
    if (host::allocObject(className) == object) operation.report("gave the same object twice");
  });
  return object;
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  Operation operation("Quen_getField_i64");
  if (object == nullptr) operation.report("was called with null");
  return operation.run([&] { return host::getFieldI64(object, field); });
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  Operation operation("Quen_setField_ptr");
  if (object == nullptr) operation.report("was called with null");
  std::int64_t traversal = 0;
  operation.check([&] { traversal = host::getFieldI64(object, kTraversal); });

  operation.run([&] { host::setFieldPtr(object, field, value); });

  operation.check([&] {
    if (host::getFieldI64(object, kTraversal) != traversal) {
      operation.report("changed \"_hasParentTraversal\"");
    }
    void* path = operation.call()->pathOfChecks();
    if (path == nullptr) return;
    host::setFieldPtr(path, kPath, value);
    if (viewOf(host::filePathFromObject(object)) != viewOf(host::filePathFromObject(path))) {
      operation.report("left a text that is not that of the String given");
    }
  });
}

int Quen_isInstanceOf(void* object, const char* className) {
  Operation operation("Quen_isInstanceOf");
  const int answer = operation.run([&] { return host::isInstanceOf(object, className); });
  if (answer != 0 && object == nullptr) operation.report("gave null a class");
  return answer;
}

void quen_collections_ArrayList_add(void* list, void* element) {
  Operation operation("quen_collections_ArrayList_add");
  operation.run([&] { host::addToArrayList(list, element); });
}

void Quen_raise(const char* exceptionClass, const char* message) {
  Operation operation("Quen_raise");
  operation.run([&] { host::raise(exceptionClass, message); });
}

int Quen_hasPendingError() {
  Operation operation("Quen_hasPendingError");
  return operation.run([] { return host::hasPendingError(); });
}
