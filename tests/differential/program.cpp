#include "tests/differential/program.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;
using quen::fuzz::Input;

namespace quen::differential {

namespace {

// Boundary values: around the buffer sizes of std::filebuf, of a writer and of a whole-text read,
// and the page size.
constexpr std::array<std::size_t, 24> kSizes = {
    0,     1,     2,     3,     15,    16,    17,    1'022,  1'023,  1'024,  1'025,  4'095,
    4'096, 4'097, 8'190, 8'191, 8'192, 8'193, 8'194, 16'384, 65'535, 65'536, 65'537, 300'000};

// Every path of a program is below its folder or, with at most one "..", in the parent, so that a
// program cannot change anything else.
constexpr std::array<std::string_view, 40> kPaths = {
    "a",        "b",          "empty",        "d",        "d/x",
    "d/e",      "d/e/y",      "d/new",        "new",      "new.txt",
    "link",     "folderlink", "folderlink/x", "dangling", "loop",
    "null",     "full",       "missing/x",    "a/x",      "d/",
    "d//x",     "./a",        "d/../a",       "d/e/../x", ".",
    "",         "home",       "quen/home",    "home/x",   "\xff\xfe",
    "\xC3\xA9", "with space", "back\\slash",  ".hidden",  "many/new/ones",
    "empty/x",  "C:\\x",      "d/e/",         "hole",     "hardlink"};

// Segments of arbitrary texts.
constexpr std::array<std::string_view, 20> kSegments = {
    "/",  "//",  "..",    ".",  "a",   "b",   "...", "\\",   "..a", ".a",
    "a.", "a.b", "a.b.c", "c:", "/..", "../", "./",  "home", "d",   "\xC3\xA9"};

bool readsWhole(std::string_view entry) {
  return entry.ends_with("readAllTextPath") || entry.ends_with("readTextFromOffsetPath") ||
         entry.ends_with("readStrictPath");
}

class Program {
 public:
  Program(Judge& judge, Input input) : judge_(judge), input_(input) {}

  std::string run() {
    judge_.clear();
    flushesAtOnce_ = input_.byte() % 4 != 0;
    fillFolders();
    std::string difference;
    while (!input_.isEmpty() && difference.empty()) difference = step();
    while (!handles_.empty() && difference.empty()) difference = close();
    if (difference.empty()) difference = judge_.compareFolders();
    for (const std::int64_t handle : handles_) {
      judge_.compare("quen_io_FileWriter__closeHandle", {number(handle)});
    }
    return difference;
  }

 private:
  std::size_t size() {
    const std::uint8_t choice = input_.byte();
    return choice < 200 ? choice % 50 : kSizes[choice % kSizes.size()];
  }

  // ASCII letters, UTF-8 sequences of all lengths, or the latter with one byte replaced.
  std::string content() {
    const std::uint8_t kind = input_.byte();
    const std::size_t length = size();
    static constexpr std::string_view kCharacters = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::string content(length, static_cast<char>('A' + kind % 26));
    if (kind % 3 == 0) return content;
    for (std::size_t i = 0; i < length; ++i) {
      content[i] = kCharacters[(i + kind) % kCharacters.size()];
    }
    if (kind % 3 == 1 && length > 0) {
      const std::size_t place = size();
      content[place < length ? place : length - 1] = static_cast<char>(input_.byte());
    }
    return content;
  }

  // C strings end at the first NUL.
  std::string cText() {
    std::string text = content();
    return text.substr(0, text.find('\0'));
  }

  std::string safePath() {
    const std::uint8_t choice = input_.byte();
    const std::string path(kPaths[choice % kPaths.size()]);
    return choice < 160 ? path : path.empty() ? "@" : "@/" + path;
  }

  std::string anyText() {
    const std::uint8_t choice = input_.byte();
    if (choice >= 128) return safePath();
    std::string path = choice % 4 == 0 ? "@/" : "";
    for (int i = choice % 8; i > 0; --i) path += kSegments[input_.byte() % kSegments.size()];
    return path;
  }

  std::string pathText(const EntryPoint& entry) {
    return mayBeGivenAnyText(entry) ? anyText() : safePath();
  }

  std::int64_t someNumber() {
    const std::uint8_t choice = input_.byte();
    if (choice < 8) return -static_cast<std::int64_t>(choice);
    if (choice == 8) return std::numeric_limits<std::int64_t>::max();
    if (choice == 9) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(size());
  }

  // A count to read. Sanitizers abort the process for a size that cannot be allocated.
  std::int64_t count() {
    const std::int64_t count = someNumber();
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    return tests::kSanitized && count == kMost ? 1 : count;
  }

  Argument object(const EntryPoint& entry) {
    const std::uint8_t kind = input_.byte();
    if (kind < 8) return null();
    if (kind < 12) return Argument{Argument::Kind::kString, "no path"};
    const std::string text = pathText(entry);
    if (kind % 3 == 0) return folderPath(text);
    return kind % 3 == 1 ? path(text) : filePath(text);
  }

  Argument textOrNull(const std::string& bytes) { return input_.byte() < 4 ? null() : text(bytes); }

  Argument byteArray(const EntryPoint& entry) {
    const std::uint8_t kind = input_.byte();
    if (kind < 8) return null();
    if (kind < 16) return Argument{Argument::Kind::kString, "no bytes"};
    return entry.roles == "p#B#" ? emptyBytes(size()) : bytes(content());
  }

  std::int64_t handle() {
    const std::uint8_t choice = input_.byte();
    if (choice < 16 || handles_.empty()) return choice % 4 == 0 ? -1 : choice % 4 == 1 ? 0 : 1;
    return handles_[choice % handles_.size()];
  }

  // A writer that buffers texts gets a private file, because the forms may write at different
  // times.
  std::string writerPath() {
    if (flushesAtOnce_) return safePath();
    return "@/../writers/" + std::to_string(++privateFiles_);
  }

  Argument argument(const EntryPoint& entry, char role) {
    switch (role) {
      case 'o': return object(entry);
      case 'd': return input_.byte() % 2 == 0 ? object(entry) : textOrNull(anyText());
      case 'n': return textOrNull(safeName());
      case 'p': return textOrNull(entry.roles.ends_with('a') ? writerPath() : pathText(entry));
      case 't': return textOrNull(cText());
      case 'B': return byteArray(entry);
      case 'h': return number(handle());
      case 'a': return number(input_.byte() % 3);
      default: return number(count());
    }
  }

  // A new name is appended to a parent, so it has no "..", or is an absolute path below the folder.
  std::string safeName() {
    static constexpr std::array<std::string_view, 8> kNames = {"a",     "b",         "new",     "d",
                                                               "d/new", "@/d/moved", "@/moved", ""};
    return std::string(kNames[input_.byte() % kNames.size()]);
  }

  Circumstances circumstances(const Arguments& arguments) {
    Circumstances circumstances;
    const std::uint8_t choice = input_.byte();
    if (choice < 128) return circumstances;
    circumstances.exceptionPending = choice % 16 == 1;
    circumstances.refusesBytes = choice % 16 == 2;
    circumstances.knowsQualifiedNamesOnly = choice % 16 == 3;
    if (choice % 8 == 4) circumstances.throwingOperation = input_.byte() % 8;
    if (choice % 8 == 5) {
      for (const Argument& argument : arguments)
        circumstances.windowsRoots.push_back(argument.text);
    }
    return circumstances;
  }

  const EntryPoint& chooseEntry() {
    static constexpr std::array<std::string_view, 20> kOften = {
        "quen_io_FileWriter__openPath",
        "quen_io_FileWriter__openPath",
        "quen_io_FileWriter__writeHandle",
        "quen_io_FileWriter__writeHandle",
        "quen_io_FileWriter__writeHandle",
        "quen_io_FileWriter__writeHandle",
        "quen_io_FileWriter__flushHandle",
        "quen_io_FileWriter__closeHandle",
        "quen_io_FileReader__readAllTextPath",
        "quen_io_FileReader__readAllTextPath",
        "quen_io_FileInputStream__readTextFromOffsetPath",
        "quen_io_FileReader__readPrefixPath",
        "quen_io_FileReader__readPrefixPath",
        "quen_io_FileInputStream__readBytesPath",
        "quen_io_FileInputStream__readBytesPath",
        "quen_io_toml_TOML__readStrictPath",
        "quen_io_FolderPath__listNamesNative",
        "quen_io_FileWriter__writePath",
        "quen_io_FileWriter__appendPath",
        "quen_data_internal_DocumentIndexStore__writeAtomic"};
    const std::size_t choice = input_.byte();
    const std::size_t all = entryPoints().size();
    if (choice < 2 * all) return entryPoints()[choice % all];
    static const std::vector<const EntryPoint*> often = [] {
      std::vector<const EntryPoint*> found;
      for (const std::string_view name : kOften) found.push_back(&entryPoint(name));
      return found;
    }();
    return *often[choice % often.size()];
  }

  std::string step() {
    if (input_.byte() % 16 == 0) return changeWorld();

    const EntryPoint& entry = chooseEntry();
    Arguments arguments;
    for (const char role : entry.roles) arguments.push_back(argument(entry, role));
    const Circumstances situation = circumstances(arguments);
    if (readsWhole(entry.name) && !canBeReadWhole(located(arguments[0].text))) {
      judge_.leaveOut();
      return "";
    }

    std::string difference = judge_.compare(entry, arguments, situation);
    if (!difference.empty() || !entry.roles.starts_with('h')) {
      if (entry.roles.ends_with('a') && judge_.lastHandle() > 0) {
        handles_.push_back(judge_.lastHandle());
      }
      return difference;
    }
    const std::int64_t handle = arguments[0].number;
    if (entry.name.ends_with("closeHandle")) std::erase(handles_, handle);
    if (flushesAtOnce_ && entry.name.ends_with("writeHandle")) {
      return judge_.compare("quen_io_FileWriter__flushHandle", {number(handle)});
    }
    return "";
  }

  std::string close() {
    const std::int64_t handle = handles_.back();
    handles_.pop_back();
    return judge_.compare("quen_io_FileWriter__closeHandle", {number(handle)});
  }

  // Resolves a path against the plain form's folder.
  std::string located(const std::string& text) const {
    const std::string path = judge_.plain().expand(text);
    return (judge_.plain().folder() / path).native();
  }

  static void write(const fs::path& file, const std::string& content) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) return;
    [[maybe_unused]] const ssize_t count = ::write(descriptor, content.data(), content.size());
    ::close(descriptor);
    makeOld(file);
  }

  static void makeOld(const fs::path& entry) {
    constexpr timespec kTime{kOldTime, 500'000'000};
    const std::array<timespec, 2> times = {kTime, kTime};
    utimensat(AT_FDCWD, entry.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
  }

  void fillFolders() {
    const std::string first = content();
    const std::string second = content();
    judge_.inBoth([&](const fs::path& folder) {
      mkdir((folder / "../writers").c_str(), 0755);
      mkdir((folder / "d").c_str(), 0755);
      mkdir((folder / "d/e").c_str(), 0755);
      write(folder / "a", first);
      write(folder / "b", second);
      write(folder / "empty", "");
      write(folder / "d/x", "x");
      link("a", folder / "link");
      link("d", folder / "folderlink");
      link("/dev/null", folder / "null");
      link("/dev/full", folder / "full");
      makeOld(folder / "d");
      makeOld(folder / "d/e");
    });
  }

  static void link(const char* target, const fs::path& place) {
    [[maybe_unused]] const int made = symlink(target, place.c_str());
    makeOld(place);
  }

  // Changes the folders between two calls, as another process would.
  std::string changeWorld() {
    const std::uint8_t choice = input_.byte();
    const std::string name(kPaths[input_.byte() % 16]);
    const std::string written = choice % 8 < 2 ? content() : "";
    judge_.inBoth([&](const fs::path& folder) {
      const fs::path entry = folder / name;
      switch (choice % 8) {
        case 0:
        case 1: write(entry, written); break;
        case 2: link("nowhere", folder / "dangling"); break;
        case 3: link("loop", folder / "loop"); break;
        case 4: mkdir((folder / "home").c_str(), 0700); break;
        case 5: hole(folder / "hole"); break;
        case 6: hardLink(folder); break;
        default: chmodFile(entry); break;
      }
    });
    return "";
  }

  static void hole(const fs::path& file) {
    write(file, "");
    constexpr off_t kLarge = off_t{1} << 40;
    [[maybe_unused]] const int cut = truncate(file.c_str(), kLarge);
    makeOld(file);
  }

  static void hardLink(const fs::path& folder) {
    [[maybe_unused]] const int made = ::link((folder / "a").c_str(), (folder / "hardlink").c_str());
  }

  static void chmodFile(const fs::path& entry) {
    struct stat status {};
    if (lstat(entry.c_str(), &status) == 0 && S_ISREG(status.st_mode)) chmod(entry.c_str(), 0600);
  }

  Judge& judge_;
  Input input_;
  bool flushesAtOnce_ = true;
  int privateFiles_ = 0;
  std::vector<std::int64_t> handles_;
};

}  // namespace

bool mayBeGivenAnyText(const EntryPoint& entry) {
  static constexpr std::array<std::string_view, 10> kWords = {
      "ormalize", "bsolute",  "parent", "elativize", "resolve",
      "ame",      "xtension", "Unsafe", "pathKind",  "exists"};
  if (entry.name.ends_with("rename") || entry.name.ends_with("listNamesNative")) return false;
  for (const std::string_view word : kWords) {
    if (entry.name.find(word) != std::string_view::npos) return true;
  }
  return false;
}

std::string runProgram(Judge& judge, const std::uint8_t* data, std::size_t size) {
  return Program(judge, Input(data, size)).run();
}

std::vector<std::uint8_t> randomProgram(std::uint64_t seed) {
  constexpr std::size_t kMost = 1'500;
  std::mt19937_64 random(seed);
  std::vector<std::uint8_t> program(random() % kMost);
  for (std::uint8_t& byte : program) byte = static_cast<std::uint8_t>(random());
  return program;
}

}  // namespace quen::differential
