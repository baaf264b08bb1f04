#include "driver/walk.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <future>
#include <iterator>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string_view>
#include <thread>
#include <utility>
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

// An entry that is ready to be visited, and then what is in it, which comes in parts.
struct Found;
using Part = std::vector<Found>;
struct Found {
  Entry entry;
  std::vector<std::future<Part>> contents;
};

// Inspects ahead of the visit on threads of its own, what is to be visited first before the rest.
// Nothing waits in there for anything else.
class Inspectors {
 public:
  explicit Inspectors(const Walk& plan) : plan_(plan) {
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
    for (unsigned i = 0; i < count; ++i) {
      threads_.emplace_back([this](const std::stop_token& stop) { work(stop); });
    }
  }

  // A scope for each entry gives back what was read before the next.
  Found inspected(const Pending& pending) {
    const small::Scope scope;
    Found found;
    found.entry.path = pending.path;
    try {
      found.contents = begin(inspect(plan_, pending, found.entry));
    } catch (const std::exception& failure) {  // more than memory holds
      small::takeException();
      found.entry.error = failure.what();
    }
    return found;
  }

 private:
  static constexpr unsigned kMostThreads = 8;
  static constexpr std::size_t kPart = 64;

  using Task = std::packaged_task<Part()>;

  std::vector<std::future<Part>> begin(std::vector<Pending> contents) {
    std::vector<std::future<Part>> parts;
    std::vector<Task> tasks;
    for (std::size_t at = 0; at < contents.size(); at += kPart) {
      const auto first = contents.begin() + static_cast<std::ptrdiff_t>(at);
      const auto last = first + std::min<std::ptrdiff_t>(kPart, contents.end() - first);
      tasks.emplace_back(
          [this, pending = std::vector(std::move_iterator(first), std::move_iterator(last))] {
            Part part;
            for (const Pending& each : pending) part.push_back(inspected(each));
            return part;
          });
      parts.push_back(tasks.back().get_future());
    }
    {
      const std::lock_guard lock(mutex_);
      std::ranges::move(tasks.rbegin(), tasks.rend(), std::back_inserter(tasks_));
    }
    wake_.notify_all();
    return parts;
  }

  // What has not begun when the threads are to stop is left undone.
  void work(const std::stop_token& stop) {
    while (true) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, stop, [this] { return !tasks_.empty(); });
      if (stop.stop_requested()) return;
      Task task = std::move(tasks_.back());
      tasks_.pop_back();
      lock.unlock();
      task();
    }
  }

  const Walk& plan_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::vector<Task> tasks_;            // the last one is next
  std::vector<std::jthread> threads_;  // destroyed first, which stops and joins them
};

// Recursion goes no deeper than a path can be long.
bool visitAll(const Walk& plan, std::vector<std::future<Part>>& parts) {
  for (std::future<Part>& part : parts) {
    for (Found& found : part.get()) {
      if (!plan.visit(found.entry) || !visitAll(plan, found.contents)) return false;
    }
  }
  return true;
}

}  // namespace

void walk(const Walk& plan) {
  Inspectors inspectors(plan);
  Found root = inspectors.inspected({std::string(kRoot), std::nullopt});
  if (plan.visit(root.entry)) visitAll(plan, root.contents);
}

}  // namespace quen::driver
