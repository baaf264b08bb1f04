#include "tests/interleavings/writer_program.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "quen/io/entry_points.h"

namespace quen::interleavings {

namespace {

constexpr std::int64_t kNeverIssued = 1'000'000;
constexpr std::size_t kShortText = 2;
constexpr std::size_t kLongText = 8'193;  // larger than the buffer of a writer
constexpr std::array<const char*, kMostThreads + 1> kPaths{"own 0", "own 1", "own 2", "shared"};
constexpr const char* kPathOfTheChild = "child";

// Each write has a text of its own: its letter, repeated, and a dot.
char letterOf(int thread, int index) {
  return static_cast<char>('a' + kMostCalls * thread + index);
}

struct Texts {
  std::array<char, kShortText + 2> shortText{};
  std::array<char, kLongText + 2> longText{};
};

template <std::size_t size>
void fill(std::array<char, size>& text, char letter) {
  text.fill(letter);
  text[size - 2] = '.';
  text[size - 1] = '\0';
}

std::vector<Texts> allTexts() {
  std::vector<Texts> all(kMostThreads * kMostCalls);
  for (std::size_t i = 0; i < all.size(); ++i) {
    fill(all[i].shortText, static_cast<char>('a' + i));
    fill(all[i].longText, static_cast<char>('a' + i));
  }
  return all;
}

// Made before the threads run, whose memory is that of the explored program.
const Texts& textsOf(int thread, int index) {
  static const std::vector<Texts> all = allTexts();
  return all[static_cast<std::size_t>(letterOf(thread, index) - 'a')];
}

bool isWriting(char letter) { return std::strchr("WLw", letter) != nullptr; }
bool isOfTheShared(char letter) { return std::strchr("WLFC", letter) != nullptr; }
bool isOfAnOwn(char letter) { return std::strchr("owfc", letter) != nullptr; }

// The texts of a file, a letter for each in the order of the file; "?" if one is not whole.
std::string textsIn(std::string_view bytes) {
  std::string texts;
  while (!bytes.empty()) {
    const std::size_t size = std::min(bytes.find_first_not_of(bytes[0]), bytes.size());
    if ((size != kShortText && size != kLongText) || bytes.substr(size, 1) != ".") return "?";
    texts += bytes[0];
    bytes.remove_prefix(size + 1);
  }
  return texts;
}

}  // namespace

WriterProgram::WriterProgram(Rows rows, Disk disk) : rows_(std::move(rows)), disk_(disk) {
  for (const std::string& row : rows_) {
    hasBlocked_ = hasBlocked_ || row.find('S') != std::string::npos;
  }
  textsOf(0, 0);
}

void WriterProgram::begin() {
  resetWriters();
  resetFiles(disk_);
  handles_ = {};
  raised_ = {};
  returned_ = {};
  hasExited_ = false;
  handles_[kShared] = quen_io_FileWriter__openPath(kPaths[kShared], 0);
}

void WriterProgram::run(int thread) {
  const std::string& row = rows_[static_cast<std::size_t>(thread)];
  for (int index = 0; index < static_cast<int>(row.size()); ++index) {
    beginCall();
    perform(thread, index, row[static_cast<std::size_t>(index)]);
    endCall();
    raised_[static_cast<std::size_t>(thread)][static_cast<std::size_t>(index)] = takeRaised();
    ++returned_[static_cast<std::size_t>(thread)];
  }
}

void WriterProgram::perform(int thread, int index, char letter) {
  const Texts& texts = textsOf(thread, index);
  std::int64_t& own = handles_[static_cast<std::size_t>(thread)];
  const std::int64_t handle = isOfTheShared(letter) ? handles_[kShared] : own;
  switch (std::toupper(letter)) {
    case 'O':
      own = quen_io_FileWriter__openPath(kPaths[static_cast<std::size_t>(thread)], 0);
      break;
    case 'W': return quen_io_FileWriter__writeHandle(handle, texts.shortText.data());
    case 'L': return quen_io_FileWriter__writeHandle(handle, texts.longText.data());
    case 'F': return quen_io_FileWriter__flushHandle(handle);
    case 'C': return quen_io_FileWriter__closeHandle(handle);
    case 'S': neverReturnFromRaise(); [[fallthrough]];
    case 'U': return quen_io_FileWriter__writeHandle(kNeverIssued, texts.shortText.data());
    case 'X': return exitTheProcess(thread);
    case 'K': return forkTheProcess(thread);
    default: fail("a letter that is no call");
  }
}

// The process ends right after its exit handlers, so what is in the files then counts.
void WriterProgram::exitTheProcess(int thread) {
  const Counts returned = returned_;  // only calls that had returned before the exit
  mayNotWait(true);
  exitWriters();
  hasExited_ = !gaveUp();
  reach({Access::kEverything});
  mayNotWait(false);
  if (hasExited_) requireTexts(returned, thread, callAtLastAttempt);
}

void WriterProgram::forkTheProcess(int thread) {
  mayNotWait(true);
  beforeFork();
  const bool isRegistryFree = !gaveUp();
  reach({Access::kEverything});
  const pid_t child = fork();
  if (child == 0) {
    stayAlone();
    exitTheChild(thread, isRegistryFree);
    _exit(0);
  }
  int status = -1;
  if (child == -1 || waitpid(child, &status, 0) != child || status != 0) {
    fail("the child of a fork failed");
  }
  afterForkInParent();
  mayNotWait(false);
}

// The child of a fork writes its copies of the texts out, but for those of a writer that another
// thread was using, and can open and write files.
void WriterProgram::exitTheChild(int thread, bool isRegistryFree) {
  afterForkInChild();
  bool isRaised = false;
  for (int other = 0; other < threads(); ++other) isRaised = isRaised || isRaising(other);
  if (isRegistryFree) {
    const std::int64_t handle = quen_io_FileWriter__openPath(kPathOfTheChild, 0);
    quen_io_FileWriter__writeHandle(handle, textsOf(0, 0).shortText.data());
  }
  exitWriters();
  if (isRegistryFree && textsIn(bytesOf(kPathOfTheChild)) != "a") fail("the child writes no file");
  if (!isRegistryFree && !isRaised) return;

  requireTexts(returned_, thread, [this](int other) {
    return isInCall(other) ? returned_[static_cast<std::size_t>(other)] : -1;
  });
}

// The texts of the writers that no other thread is using are in their files. `callOf` gives the
// call that a thread is in; -1 if it is in none.
void WriterProgram::requireTexts(const Counts& returned, int thread,
                                 const std::function<int(int other)>& callOf) const {
  for (int handle = 0; handle <= kShared; ++handle) {
    bool isInUse = false;
    for (int other = 0; other < threads(); ++other) {
      const int call = other == thread ? -1 : callOf(other);
      if (call >= 0 && isUsedBy(other, call, handle)) isInUse = true;
    }
    if (!isInUse) requireTextsOf(handle, returned);
  }
}

// All texts whose writes have returned without an exception are in the file.
void WriterProgram::requireTextsOf(int handle, const Counts& returned) const {
  const std::string_view bytes = bytesOf(kPaths[static_cast<std::size_t>(handle)]);
  for (int thread = 0; thread < threads(); ++thread) {
    for (int call = 0; call < returned[static_cast<std::size_t>(thread)]; ++call) {
      const auto row = static_cast<std::size_t>(thread);
      const auto column = static_cast<std::size_t>(call);
      if (!isWriting(rows_[row][column]) || !isUsedBy(thread, call, handle)) continue;
      if (raised_[row][column] != Raised::kNothing) continue;
      if (bytes.find(letterOf(thread, call)) == std::string_view::npos) fail("a text is lost");
    }
  }
}

bool WriterProgram::isUsedBy(int thread, int call, int handle) const {
  const char letter = rows_[static_cast<std::size_t>(thread)][static_cast<std::size_t>(call)];
  return handle == kShared ? isOfTheShared(letter) : handle == thread && isOfAnOwn(letter);
}

// The exit of the process, for what is still open.
void WriterProgram::finish() { exitWriters(); }

void WriterProgram::judge() {
  if (hasBlocked_) return;  // It did exit and fork.
  const std::string end = outcome();
  outcomes_.insert(end);
  if (!judged_.insert(end + order()).second) return;

  if (isAnyFileOpen()) return fail("a file was left open");
  for (int thread = 0; thread < threads(); ++thread) {
    for (int other = 0; other < thread; ++other) {
      const std::int64_t own = handles_[static_cast<std::size_t>(thread)];
      if (own != 0 && own == handles_[static_cast<std::size_t>(other)]) {
        return fail("two writers with one handle");
      }
    }
    const auto row = static_cast<std::size_t>(thread);
    for (std::size_t call = 0; call < rows_[row].size(); ++call) {
      if (rows_[row][call] == 'U' && raised_[row][call] != Raised::kClosed) {
        return fail("a handle that was never issued was found");
      }
    }
  }
  for (int handle = 0; handle <= kShared; ++handle) {
    if (!isLinearizable(handle)) return fail("the calls are not linearizable");
  }
}

// A writer as it is for one thread.
struct WriterProgram::Model {
  bool isOpen = false;
  bool failed = false;
  int closing = -1;  // the call that closed it
  int writes = 0;    // of the file
  std::string waiting;
  std::string file;
  Disk disk = Disk::kWorks;

  bool write(const std::string& texts) {
    if (texts.empty()) return true;
    ++writes;
    if (disk == Disk::kFull || (disk == Disk::kFailsOnce && writes == 1)) return false;
    file += texts;
    return true;
  }

  void flush() {
    if (failed) return;
    failed = !write(waiting);
    if (!failed) waiting.clear();
  }

  // What has not been written is tried once more.
  void destroy() {
    if (write(waiting)) waiting.clear();
  }

  Raised append(char letter, bool isLong) {
    if (isLong) flush();
    if (!failed && isLong) failed = !write({letter});
    if (!failed && !isLong) waiting += letter;
    return failed ? Raised::kWriteFailed : Raised::kNothing;
  }
};

// The calls that use the writer, or end all.
std::vector<WriterProgram::Call> WriterProgram::callsOn(int handle) const {
  std::vector<Call> calls;
  for (int thread = 0; thread < threads(); ++thread) {
    const auto row = static_cast<std::size_t>(thread);
    for (int index = 0; index < static_cast<int>(rows_[row].size()); ++index) {
      const auto column = static_cast<std::size_t>(index);
      const char letter = rows_[row][column];
      if (!(letter == 'X' && hasExited_) && !isUsedBy(thread, index, handle)) continue;
      calls.push_back({thread, index, letter, raised_[row][column]});
    }
  }
  return calls;
}

// Whether the calls, one after the other in an order in which they could have been made, raise what
// they did and leave what is in the file. A call comes before another one if some schedule that is
// equivalent to this one ends it before the other begins.
bool WriterProgram::isLinearizable(int handle) const {
  const std::vector<Call> calls = callsOn(handle);
  std::vector<unsigned> before(calls.size());
  std::vector<unsigned> overlapping(calls.size());
  for (std::size_t i = 0; i < calls.size(); ++i) {
    for (std::size_t j = 0; j < calls.size(); ++j) {
      if (i == j) continue;
      const bool there =
          happensBefore(calls[j].thread, calls[j].index, calls[i].thread, calls[i].index);
      const bool back =
          happensBefore(calls[i].thread, calls[i].index, calls[j].thread, calls[j].index);
      if (there && !back) before[i] |= 1U << j;
      if (there == back) overlapping[i] |= 1U << j;
    }
  }
  Model model;
  model.isOpen = handle == kShared;
  model.disk = disk_;
  return extend(model, calls, 0, before, overlapping,
                textsIn(bytesOf(kPaths[static_cast<std::size_t>(handle)])));
}

// Tries every call that may come next.
bool WriterProgram::extend(const Model& model, const std::vector<Call>& calls, unsigned done,
                           const std::vector<unsigned>& before,
                           const std::vector<unsigned>& overlapping,
                           const std::string& texts) const {
  if (done == (1U << calls.size()) - 1) {
    Model last = model;
    last.destroy();
    return last.file == texts;
  }
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if ((done >> i & 1U) != 0 || (before[i] & ~done) != 0) continue;
    const Call& call = calls[i];
    Model after = model;
    // A call that had looked the writer up before it was closed may find it failed.
    const bool isLate =
        after.closing >= 0 && (overlapping[i] >> static_cast<unsigned>(after.closing) & 1U) != 0;
    Raised expected = Raised::kNothing;
    switch (std::toupper(call.letter)) {
      case 'O': after.isOpen = true; break;
      case 'W':
      case 'L':
        if (after.isOpen) {
          expected = after.append(letterOf(call.thread, call.index), call.letter == 'L');
        } else {
          expected = Raised::kClosed;
          if (isLate && call.raised == Raised::kWriteFailed) {
            expected = call.raised;
            after.failed = true;
          }
        }
        break;
      case 'F':
        if (after.isOpen) {
          after.flush();
          expected = after.failed ? Raised::kFlushFailed : Raised::kNothing;
        } else {
          expected = Raised::kClosed;
          if (isLate && after.failed && call.raised == Raised::kFlushFailed) expected = call.raised;
        }
        break;
      case 'C':
        if (!after.isOpen) break;
        after.flush();
        if (after.failed) expected = Raised::kCloseFailed;
        after.isOpen = false;
        after.closing = static_cast<int>(i);
        break;
      default:  // the exit of the process
        after.isOpen = false;
        after.closing = -1;
        break;
    }
    if (call.raised != expected) continue;
    if (extend(after, calls, done | 1U << i, before, overlapping, texts)) return true;
  }
  return false;
}

std::string WriterProgram::outcome() const {
  std::string text = hasExited_ ? "exit " : "";
  for (int thread = 0; thread < threads(); ++thread) {
    for (std::size_t call = 0; call < rows_[static_cast<std::size_t>(thread)].size(); ++call) {
      text += static_cast<char>('0' +
                                static_cast<int>(raised_[static_cast<std::size_t>(thread)][call]));
    }
    text += ' ';
  }
  for (const char* path : kPaths) text += textsIn(bytesOf(path)) + '|';
  return text;
}

// Which call happens before which.
std::string WriterProgram::order() const {
  std::string text;
  for (int thread = 0; thread < threads(); ++thread) {
    for (int other = 0; other < threads(); ++other) {
      if (thread == other) continue;
      const auto calls = static_cast<int>(rows_[static_cast<std::size_t>(thread)].size());
      const auto others = static_cast<int>(rows_[static_cast<std::size_t>(other)].size());
      for (int call = 0; call < calls; ++call) {
        for (int otherCall = 0; otherCall < others; ++otherCall) {
          text += happensBefore(thread, call, other, otherCall) ? '1' : '0';
        }
      }
    }
  }
  return text;
}

}  // namespace quen::interleavings
