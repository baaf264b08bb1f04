#include "tests/differential/judge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace quen::differential {

namespace {

// The form's folder has a parent of its own, so that ".." does not lead to the other form's folder.
fs::path folderBelow(const fs::path& scratch, const std::string& form) {
  const fs::path folder = scratch / (scratch.filename().string() + form) / "folder";
  fs::create_directories(folder);
  return folder;
}

fs::path newScratch() {
  const fs::path below = fs::exists("/dev/shm") ? "/dev/shm" : "/tmp";
  std::string name = below / "quen-io-differential-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  return name;
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  lstat(path.c_str(), &status);
  return status;
}

constexpr std::string_view kTemporary = ".tmp-";

// Replaces the numbers of temporary files.
void hideNumbers(std::string& text) {
  for (std::size_t at = 0; (at = text.find(kTemporary, at)) != std::string::npos;) {
    at += kTemporary.size();
    const std::size_t end = text.find_first_not_of("0123456789", at);
    text.replace(at, (end == std::string::npos ? text.size() : end) - at, "N");
  }
}

void hideNumbers(Outcome& outcome) {
  hideNumbers(outcome.result);
  for (std::string& call : outcome.calls) hideNumbers(call);
}

// The name as it is compared.
std::string shown(const fs::path& name, bool numbersDiffer) {
  std::string text = name;
  if (numbersDiffer) hideNumbers(text);
  return text;
}

std::vector<std::string> shown(const std::vector<fs::path>& names, bool numbersDiffer) {
  std::vector<std::string> texts;
  for (const fs::path& name : names) texts.push_back(shown(name, numbersDiffer));
  return texts;
}

// Temporary files of one target are sorted by their numbers, so by length first.
std::vector<fs::path> sortedNames(const fs::path& folder, bool numbersDiffer) {
  std::vector<fs::path> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  const auto order = [&](const fs::path& name) {
    const std::size_t length = numbersDiffer ? name.native().size() : 0;
    return std::tuple(shown(name, numbersDiffer), length, name.native());
  };
  std::sort(names.begin(), names.end(),
            [&](const fs::path& a, const fs::path& b) { return order(a) < order(b); });
  return names;
}

// At most the first 700,000 bytes of a file.
std::string beginning(const fs::path& file) {
  constexpr std::size_t kMost = 700'000;
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  std::string content(kMost, '\0');
  const ssize_t count = read(descriptor, content.data(), content.size());
  close(descriptor);
  content.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return content;
}

bool isOld(const struct stat& status) { return status.st_mtim.tv_sec == kOldTime; }

std::string linkTarget(const fs::path& link, const fs::path& folder) {
  const std::string target = fs::read_symlink(link);
  if (!target.starts_with(folder.native())) return target;
  return '@' + target.substr(folder.native().size());
}

std::string differenceIn(const fs::path& plain, const struct stat& a, const fs::path& module,
                         const struct stat& b) {
  const auto say = [&](const std::string& what, const auto& p, const auto& m) {
    return plain.string() + ": " + what + " " + std::to_string(p) +
           " in the plain form's folder, " + std::to_string(m) + " in the module's\n";
  };
  if (a.st_mode != b.st_mode) return say("mode", a.st_mode, b.st_mode);
  if (a.st_nlink != b.st_nlink) return say("links", a.st_nlink, b.st_nlink);
  if (isOld(a) != isOld(b)) return say("time untouched", isOld(a), isOld(b));
  if (S_ISDIR(a.st_mode) || S_ISLNK(a.st_mode)) return "";
  if (a.st_size != b.st_size) return say("size", a.st_size, b.st_size);
  if (!S_ISREG(a.st_mode) || a.st_size == 0) return "";
  if (beginning(plain) != beginning(module)) return plain.string() + ": the contents differ\n";
  return "";
}

// Compares everything below the folders of the two forms, `plain` and `module`.
std::string differenceBelow(const fs::path& plain, const fs::path& plainRoot,
                            const fs::path& module, const fs::path& moduleRoot,
                            bool numbersDiffer) {
  const std::vector<fs::path> names = sortedNames(plain, numbersDiffer);
  const std::vector<fs::path> others = sortedNames(module, numbersDiffer);
  if (shown(names, numbersDiffer) != shown(others, numbersDiffer)) {
    std::string lists = plain.string() + ": the plain form's folder has";
    for (const fs::path& name : names) lists += ' ' + name.string();
    lists += ", the module's";
    for (const fs::path& name : others) lists += ' ' + name.string();
    return lists + '\n';
  }
  std::string differences;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const fs::path a = plain / names[i];
    const fs::path b = module / others[i];
    const struct stat status = statusOf(a);
    std::string difference = differenceIn(a, status, b, statusOf(b));
    if (difference.empty() && S_ISLNK(status.st_mode) &&
        linkTarget(a, plainRoot) != linkTarget(b, moduleRoot)) {
      difference = a.string() + ": the targets differ\n";
    }
    if (difference.empty() && S_ISDIR(status.st_mode)) {
      difference = differenceBelow(a, plainRoot, b, moduleRoot, numbersDiffer);
    }
    differences += difference;
  }
  return differences;
}

std::string describe(const EntryPoint& entry, const Arguments& arguments) {
  std::string call(entry.name);
  call += '(';
  for (const Argument& argument : arguments) {
    if (&argument != arguments.data()) call += ", ";
    switch (argument.kind) {
      case Argument::Kind::kNull: call += "null"; break;
      case Argument::Kind::kNumber: call += std::to_string(argument.number); break;
      default:
        call += argument.text.size() > 80 ? std::to_string(argument.text.size()) + " bytes of \"" +
                                                argument.text.substr(0, 20) + "...\""
                                          : '"' + argument.text + '"';
    }
  }
  return call + ')';
}

}  // namespace

Judge::Judge(const std::string& moduleLibrary) : Judge(moduleLibrary, newScratch(), {}, {}) {}

Judge::Judge(const std::string& moduleLibrary, fs::path scratch, const Surroundings& plain,
             const Surroundings& module)
    : scratch_(std::move(scratch)),
      numbersDiffer_(plain.otherThreads),
      plain_("plain", QUEN_IO_PLAIN_LIBRARY, folderBelow(scratch_, "-p"), plain),
      module_("module", moduleLibrary, folderBelow(scratch_, "-m"), module) {
  for (const Form* form : {&plain_, &module_}) {
    setenv("HOME", (form->folder() / "home").c_str(), 1);
    setenv("QUEN_HOME", "quen/home", 1);  // of the form's folder, which is the current one
    form->call(entryPoint("Quen_isUnsafeRecursiveDeletePath"), {text("@/any")});
  }
}

std::string Judge::defaultModule() {
  const char* given = std::getenv("QUEN_IO_MODULE");
  return given != nullptr ? given : QUEN_IO_MODULE_LIBRARY;
}

// A forked child that exits destroys its copy of the judge; only the parent may remove the folders.
Judge::~Judge() {
  if (getpid() != process_) return;
  fs::current_path("/");
  std::error_code ignored;
  fs::remove_all(scratch_, ignored);
}

void Judge::inBoth(const std::function<void(const fs::path&)>& change) const {
  change(plain_.folder());
  change(module_.folder());
}

void Judge::clear() {
  moduleHandles_.clear();
  inBoth([](const fs::path& folder) {
    for (const auto& entry : fs::directory_iterator(folder.parent_path())) {
      fs::remove_all(entry.path());
    }
    fs::create_directory(folder);
  });
}

// The module reports a failure to write buffered text at the next flush.
bool Judge::isAllowed(const EntryPoint& entry, const Arguments& arguments, const Outcome& plain,
                      const Outcome& module) {
  static const std::vector<std::string> failure = {
      R"(Quen_raise("IOException", "Failed to write file"))"};
  const bool waits = entry.name == "quen_io_FileWriter__writeHandle" &&
                     arguments.at(1).text.size() <= kWriterBuffer && plain.calls == failure &&
                     module.calls.empty() && module.thrown.empty();
  if (waits) ++met_.at(static_cast<std::size_t>(Allowed::kTextsWait));
  return waits;
}

std::string Judge::compare(std::string_view entry, const Arguments& arguments,
                           const Circumstances& circumstances) {
  return compare(entryPoint(entry), arguments, circumstances);
}

// With the module's handle in place of the plain form's.
Arguments Judge::forModule(const EntryPoint& entry, const Arguments& arguments) const {
  Arguments passed = arguments;
  if (!numbersDiffer_ || !entry.roles.starts_with('h')) return passed;
  const auto handle = moduleHandles_.find(arguments.at(0).number);
  if (handle != moduleHandles_.end()) passed[0].number = handle->second;
  return passed;
}

void Judge::noteHandles(Outcome& plain, Outcome& module) {
  lastHandle_ = plain.thrown.empty() ? std::stoll(plain.result) : 0;
  if (!numbersDiffer_ || lastHandle_ == 0 || !module.thrown.empty()) return;
  if (module.result == "0") return;
  moduleHandles_[lastHandle_] = std::stoll(module.result);
  plain.result = module.result = "a handle";
}

std::string Judge::compare(const EntryPoint& entry, const Arguments& arguments,
                           const Circumstances& circumstances) {
  Outcome plain = plain_.call(entry, arguments, circumstances);
  Outcome module = module_.call(entry, forModule(entry, arguments), circumstances);
  // An argument may contain the other form's folder: fuzzers learn texts from memory comparisons.
  module_.hideFolder(plain);
  plain_.hideFolder(module);
  ++comparedCalls_;
  if (entry.roles.ends_with('a')) noteHandles(plain, module);
  if (numbersDiffer_) {
    hideNumbers(plain);
    hideNumbers(module);
  }
  if (observer_) observer_(entry, plain, module);
  if (plain == module || isAllowed(entry, arguments, plain, module)) return "";
  return describe(entry, arguments) + "\nplain form:\n" + differential::describe(plain) +
         "module:\n" + differential::describe(module);
}

std::string Judge::compareFolders() const {
  const fs::path plain = plain_.folder().parent_path();
  const fs::path module = module_.folder().parent_path();
  return differenceBelow(plain, plain_.folder(), module, module_.folder(), numbersDiffer_);
}

bool canBeReadWhole(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return true;
  constexpr off_t kMost = off_t{4} << 20;
  if (S_ISREG(status.st_mode)) return status.st_size <= kMost;
  constexpr dev_t kNull = 0x103;  // /dev/null; other devices may be endless
  return S_ISDIR(status.st_mode) || status.st_rdev == kNull;
}

}  // namespace quen::differential
