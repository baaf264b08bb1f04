#include "driver/walk.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <future>
#include <limits>
#include <list>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "driver/reasons.h"
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
  std::int64_t depth = 0;
  std::optional<QuenPathEntryKind> recorded = std::nullopt;
};

// Spelled as by the listing, because the runtime's record of kinds is keyed by path text.
std::string fullPath(const std::string& root, const std::string& path) {
  if (path == kRoot) return root;
  return root.ends_with('/') ? root + path : root + '/' + path;
}

bool isRecordedOr(std::optional<QuenPathEntryKind> recorded, QuenPathEntryKind kind,
                  bool (*ask)(void*), void* path) {
  return recorded ? *recorded == kind : ask(path);
}

// A recorded kind is that of a link's target, so links are detected first.
Kind kindOf(const std::string& full, const Pending& entry) {
  void* path = small::newPath(full);
  if (entry.path != kRoot && quen_io_Path__isSymlink(path)) return Kind::kLink;
  if (isRecordedOr(entry.recorded, QuenPathEntryKind::kRegularFile, quen_io_Path__isRegular, path))
    return Kind::kFile;
  if (isRecordedOr(entry.recorded, QuenPathEntryKind::kDirectory, quen_io_Path__isDirectory, path))
    return Kind::kFolder;
  return quen_io_Path__exists(path) ? Kind::kOther : Kind::kMissing;
}

// ": " and the message of an errno.
std::string because(int error) { return ": " + std::generic_category().message(error); }

// Time and file system of an entry from stat(2): no entry point returns the latter, and
// Path.lastModified can be a millisecond too early, so that two indexes of one tree would differ.
struct Status {
  std::int64_t modifiedMs = 0;
  dev_t fileSystem = 0;
  int error = 0;
};

// Truncated toward zero, like Path.lastModified.
std::int64_t millisecondsOf(const timespec& time) {
  constexpr std::int64_t kNanosecondsInOne = 1'000'000;
  const bool isCutUp = time.tv_sec < 0 && time.tv_nsec % kNanosecondsInOne != 0;
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / kNanosecondsInOne + (isCutUp ? 1 : 0);
}

// Only the root is followed if it is a link.
Status statusOf(const std::string& full, bool isRoot) {
  struct stat status = {};
  const int failed = isRoot ? stat(full.c_str(), &status) : lstat(full.c_str(), &status);
  if (failed != 0) return {.error = errno};
  return {.modifiedMs = millisecondsOf(status.st_mtim), .fileSystem = status.st_dev};
}

// The whole-file reader would not return for an endless file, so the prefix reader is called with
// the size as limit. It drops an incomplete sequence at the end, so only if its text is shorter
// than the size is the whole-file reader called too.
std::optional<small::Exception> whatReadingRaises(const std::string& full, std::int64_t size) {
  constexpr std::int64_t kLongestCharacter = 4;
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() - kLongestCharacter;
  void* text =
      quen_io_FileReader__readPrefixPath(full.c_str(), std::min(size, kMost) + kLongestCharacter);
  auto raised = small::takeException();
  if (raised || std::cmp_greater_equal(small::stringLength(text), size)) return raised;
  quen_io_FileReader__readAllTextPath(full.c_str());
  return small::takeException();
}

void readText(const std::string& full, Entry& entry) {
  if (entry.size == 0) {
    entry.text = Text::kUtf8;
    return;
  }
  const std::optional<small::Exception> raised = whatReadingRaises(full, entry.size);
  if (!raised) {
    entry.text = Text::kUtf8;
  } else if (raised->message.starts_with(kFault)) {
    entry.text = Text::kNotUtf8;
    entry.fault = raised->message;
    const char* end = entry.fault.data() + entry.fault.size();
    std::from_chars(entry.fault.data() + kFault.size(), end, entry.faultByte);
  } else {
    entry.error = raised->message + readingReason(full);
  }
}

// A folder without read permission lists as empty (skip_permission_denied), but a reader fails to
// open it.
void checkThatFolderOpens(const std::string& full, Entry& entry) {
  quen_io_FileReader__readAllTextPath(full.c_str());
  if (const auto raised = small::takeException()) {
    entry.error = raised->message + readingReason(full);
  }
}

// A pattern with a slash is matched against the path relative to the root, any other against the
// name.
bool isExcluded(const Walk& plan, const std::string& path, const std::string& name) {
  return std::ranges::any_of(plan.excluded, [&](const std::string& pattern) {
    const bool isOfPath = pattern.find('/') != std::string::npos;
    return fnmatch(pattern.c_str(), isOfPath ? path.c_str() : name.c_str(), FNM_PATHNAME) == 0;
  });
}

std::vector<Pending> listFolder(const Walk& plan, const std::string& full, std::int64_t depth,
                                Entry& entry) {
  std::vector<std::string> names =
      small::listStrings(quen_io_FolderPath__listNamesNative(full.c_str()));
  if (const auto raised = small::takeException()) {
    entry.error = raised->message + readingReason(full);
  } else if (names.empty()) {
    checkThatFolderOpens(full, entry);
  }
  std::ranges::sort(names);  // std::char_traits<char> compares unsigned bytes

  std::vector<Pending> contents;
  for (const std::string& name : names) {
    const std::string path = entry.path == kRoot ? name : entry.path + '/' + name;
    if (isExcluded(plan, path, name)) continue;
    contents.push_back({path, depth + 1, small::recordedKind(fs::path(full) / name)});
  }
  return contents;
}

// The options of the walk and the file system of its root.
struct Bounds {
  const Walk& plan;
  dev_t fileSystem;

  bool reachInto(const Pending& folder, const Status& status) const {
    if (folder.depth >= plan.maxDepth) return false;
    return !plan.oneFileSystem || status.fileSystem == fileSystem;
  }
};

void readTarget(const std::string& full, Entry& entry) {
  std::error_code error;
  entry.target = fs::read_symlink(full, error);
  if (error) entry.error = "Cannot read link: " + error.message();
}

// Fills in the entry, and returns the contents if it is a folder.
std::vector<Pending> inspect(const Bounds& bounds, const Pending& pending, Entry& entry) {
  const std::string full = fullPath(bounds.plan.root, pending.path);
  entry.kind = kindOf(full, pending);
  if (entry.kind == Kind::kLink) {
    readTarget(full, entry);
    return {};
  }
  const Status status = statusOf(full, pending.path == kRoot);
  if (entry.kind == Kind::kMissing) {
    entry.error = "Cannot access" + (status.error == 0 ? "" : because(status.error));
    return {};
  }
  entry.size = quen_io_FileInputStream__sizePath(full.c_str());
  entry.modifiedMs = status.modifiedMs;
  if (entry.kind == Kind::kFile && entry.size <= bounds.plan.maxTextBytes) readText(full, entry);
  if (entry.kind != Kind::kFolder || !bounds.reachInto(pending, status)) return {};
  return listFolder(bounds.plan, full, pending.depth, entry);
}

// An inspected entry, and futures of its contents, in chunks of at most kPart entries.
struct Found;
using Part = std::vector<Found>;
struct Found {
  Entry entry;
  std::vector<std::future<Part>> contents;
};

// A prefetching thread pool: inspects entries ahead of the visit, in the order of the visit. No
// task waits for another one.
class Inspectors {
 public:
  explicit Inspectors(const Bounds& bounds) : bounds_(bounds) {
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
    for (unsigned i = 0; i < count; ++i) {
      threads_.emplace_back([this](const std::stop_token& stop) { work(stop); });
    }
  }

  Found inspectedRoot(const std::string& path) { return inspected({.path = path}, tasks_.end()); }

 private:
  static constexpr unsigned kMostThreads = 8;
  static constexpr std::size_t kPart = 64;

  using Task = std::packaged_task<Part()>;

  // The tasks in the order of the visit. A running task leaves an empty one in its place, before
  // which the tasks for its contents are inserted.
  using Tasks = std::list<Task>;

  // The scope releases the objects of each entry before the next one is inspected.
  Found inspected(const Pending& pending, Tasks::iterator place) {
    const small::Scope scope;
    Found found;
    found.entry.path = pending.path;
    try {
      found.contents = begin(inspect(bounds_, pending, found.entry), place);
    } catch (const std::exception& failure) {  // std::length_error or std::bad_alloc
      small::takeException();
      found.entry.error = failure.what();
    }
    return found;
  }

  std::vector<std::future<Part>> begin(std::vector<Pending> contents, Tasks::iterator place) {
    std::vector<std::future<Part>> parts;
    Tasks tasks;
    for (std::size_t at = 0; at < contents.size(); at += kPart) {
      const auto first = contents.begin() + static_cast<std::ptrdiff_t>(at);
      const auto last = first + std::min<std::ptrdiff_t>(kPart, contents.end() - first);
      const auto task = tasks.emplace(tasks.end());
      *task = Task(
          [this, task, pending = std::vector(std::move_iterator(first), std::move_iterator(last))] {
            Part part;
            for (const Pending& each : pending) part.push_back(inspected(each, task));
            return part;
          });
      parts.push_back(task->get_future());
    }
    if (tasks.empty()) return parts;
    {
      const std::lock_guard lock(mutex_);
      waiting_ += tasks.size();
      tasks_.splice(place, tasks);
    }
    wake_.notify_all();
    return parts;
  }

  // Tasks that have not started when a stop is requested are abandoned.
  void work(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (true) {
      wake_.wait(lock, stop, [this] { return waiting_ > 0; });
      if (stop.stop_requested()) return;
      const auto next = std::ranges::find_if(tasks_, &Task::valid);
      Task task = std::move(*next);
      --waiting_;
      lock.unlock();
      task();
      lock.lock();
      tasks_.erase(next);
    }
  }

  const Bounds& bounds_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  Tasks tasks_;
  std::size_t waiting_ = 0;            // tasks that have not started
  std::vector<std::jthread> threads_;  // destroyed first, which stops and joins them
};

// The depth of the recursion is bounded by the longest path (PATH_MAX).
void visitAll(const Walk& plan, std::vector<std::future<Part>>& parts) {
  for (std::future<Part>& part : parts) {
    for (Found& found : part.get()) {
      plan.visit(found.entry);
      visitAll(plan, found.contents);
    }
  }
}

}  // namespace

void walk(const Walk& plan) {
  const Bounds bounds = {plan, statusOf(plan.root, true).fileSystem};
  Inspectors inspectors(bounds);
  Found root = inspectors.inspectedRoot(std::string(kRoot));
  plan.visit(root.entry);
  visitAll(plan, root.contents);
}

}  // namespace quen::driver
