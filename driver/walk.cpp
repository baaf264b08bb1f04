#include "driver/walk.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;

namespace quen::driver {

namespace {

constexpr std::string_view kRoot = ".";
constexpr std::string_view kFault = "File is not valid UTF-8 at byte ";

// An entry that is still to be visited, with its kind if the listing recorded it.
struct Pending {
  std::string path;
  std::optional<QuenPathEntryKind> recorded;
};

// As the listing spells it, since the record of kinds goes by that.
std::string fullPath(const std::string& root, const std::string& path) {
  if (path == kRoot) return root;
  return root.ends_with('/') ? root + path : root + '/' + path;
}

bool isRecordedOr(std::optional<QuenPathEntryKind> recorded, QuenPathEntryKind kind,
                  bool (*ask)(void*), void* path) {
  return recorded ? *recorded == kind : ask(path);
}

// A record tells what a link leads to, so links come first.
Kind kindOf(const std::string& full, const Pending& entry) {
  void* path = small::newPath(full);
  if (entry.path != kRoot && quen_io_Path__isSymlink(path)) return Kind::kLink;
  if (isRecordedOr(entry.recorded, QuenPathEntryKind::kRegularFile, quen_io_Path__isRegular, path))
    return Kind::kFile;
  if (isRecordedOr(entry.recorded, QuenPathEntryKind::kDirectory, quen_io_Path__isDirectory, path))
    return Kind::kFolder;
  return quen_io_Path__exists(path) ? Kind::kOther : Kind::kMissing;
}

void readText(const std::string& full, Entry& entry) {
  quen_io_FileReader__readAllTextPath(full.c_str());
  const std::optional<small::Exception> raised = small::takeException();
  if (!raised) {
    entry.text = Text::kUtf8;
  } else if (raised->message.starts_with(kFault)) {
    entry.text = Text::kNotUtf8;
    entry.fault = raised->message;
    const char* end = entry.fault.data() + entry.fault.size();
    std::from_chars(entry.fault.data() + kFault.size(), end, entry.faultByte);
  } else {
    entry.error = raised->message;
  }
}

// A folder that may not be opened is listed as an empty one; to the reader it cannot be opened.
void checkThatFolderOpens(const std::string& full, Entry& entry) {
  quen_io_FileReader__readAllTextPath(full.c_str());
  if (const auto raised = small::takeException()) entry.error = raised->message;
}

std::vector<Pending> listFolder(const std::string& full, Entry& entry) {
  std::vector<std::string> names =
      small::listStrings(quen_io_FolderPath__listNamesNative(full.c_str()));
  if (const auto raised = small::takeException()) {
    entry.error = raised->message;
  } else if (names.empty()) {
    checkThatFolderOpens(full, entry);
  }
  std::ranges::sort(names);  // a char_traits<char> comparison goes by unsigned bytes

  std::vector<Pending> contents;
  for (const std::string& name : names) {
    const std::string path = entry.path == kRoot ? name : entry.path + '/' + name;
    contents.push_back({path, small::recordedKind(fs::path(full) / name)});
  }
  return contents;
}

// What is in the folder, when it is one.
std::vector<Pending> inspect(const Walk& plan, const Pending& pending, Entry& entry) {
  const std::string full = fullPath(plan.root, pending.path);
  entry.kind = kindOf(full, pending);
  if (entry.kind == Kind::kLink) return {};
  if (entry.kind == Kind::kMissing) {
    entry.error = "Cannot access";
    return {};
  }
  entry.size = quen_io_FileInputStream__sizePath(full.c_str());
  entry.modifiedMs = quen_io_Path__lastModified(small::newPath(full));
  if (entry.kind == Kind::kFile && entry.size <= plan.maxTextBytes) readText(full, entry);
  return entry.kind == Kind::kFolder ? listFolder(full, entry) : std::vector<Pending>();
}

}  // namespace

// A stack of its own instead of recursion, so that depth costs nothing; and a scope for each entry,
// so that what was read is given back before the next.
void walk(const Walk& plan) {
  std::vector<Pending> stack = {{std::string(kRoot), std::nullopt}};
  while (!stack.empty()) {
    const small::Scope scope;
    const Pending pending = std::move(stack.back());
    stack.pop_back();

    Entry entry;
    entry.path = pending.path;
    std::vector<Pending> contents;
    try {
      contents = inspect(plan, pending, entry);
    } catch (const std::exception& failure) {  // more than memory holds
      small::takeException();
      entry.error = failure.what();
    }
    if (!plan.visit(entry)) return;
    std::ranges::move(contents.rbegin(), contents.rend(), std::back_inserter(stack));
  }
}

}  // namespace quen::driver
