// Runs processes that publish and read one document index in every order of their system calls on
// files:
//
//     quen_io_publications [EVERY]            one publisher with a reader, two publishers, and two
//                                             with a reader: only one of EVERY orders of the last
//     quen_io_publications --same-temporary   two publishers that write the same temporary file,
//                                             which nothing protects; exit status 0 if an order
//                                             goes wrong
//
// Each process is stopped by ptrace(2) before each such call, so that one call after the other is
// made in the order that is chosen.

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using namespace quen::small;

namespace {

constexpr int kSkipped = 77;
constexpr std::array<long, 11> kFileCalls{
    SYS_openat, SYS_read,       SYS_write,    SYS_close,     SYS_fstat,
    SYS_lseek,  SYS_newfstatat, SYS_renameat, SYS_renameat2, SYS_unlinkat,
#ifdef SYS_rename
    SYS_rename,
#endif
};

// The versions of the index: that of the beginning, and those of the two publishers.
const std::array<std::string, 3> kVersions{"old", "version of a", "longer version of b"};

// A process that waits before its next system call on a file.
class Process {
 public:
  // The process exits with the status that the work returns. It prepares itself without stops.
  Process(const std::function<void()>& prepare, const std::function<int()>& work)
      : process_(fork()) {
    if (process_ == 0) {
      prepare();
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(kSkipped);
      raise(SIGSTOP);
      _exit(work());
    }
    waitForStop();
    if (status_) return;
    ptrace(PTRACE_SETOPTIONS, process_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    advance();
  }
  ~Process() {
    if (status_) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Makes the call, and stops before the next one or at the end of the process.
  void advance() {
    do {
      ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr);
      waitForStop();
    } while (!status_ && !isBeforeFileCall());
  }

  // The exit status of a process that has ended.
  std::optional<int> status() const { return status_; }

 private:
  void waitForStop() {
    int status = 0;
    if (waitpid(process_, &status, 0) != process_) status_ = -1;
    if (WIFEXITED(status)) status_ = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) status_ = -1;
  }

  bool isBeforeFileCall() const {
    __ptrace_syscall_info call{};
    ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof call, &call);
    return call.op == PTRACE_SYSCALL_INFO_ENTRY &&
           std::find(kFileCalls.begin(), kFileCalls.end(), static_cast<long>(call.entry.nr)) !=
               kFileCalls.end();
  }

  pid_t process_;
  std::optional<int> status_;
};

// A folder of its own for the index, removed at the end.
class Folder {
 public:
  Folder() {
    std::string name = fs::temp_directory_path() / "quen-io-publications-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~Folder() { fs::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  fs::path index() const { return path_ / "index"; }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(path_)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

 private:
  fs::path path_;
};

std::string contentsOf(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// 0 if nothing was raised.
int publish(const fs::path& index, const std::string& version) {
  quen_data_internal_DocumentIndexStore__writeAtomic(index.c_str(), version.c_str());
  return takeException() ? 1 : 0;
}

// The number of the version that was read; one more than the last if it is none of them.
int read(const fs::path& index) {
  const std::string found = stringBytes(quen_io_FileReader__readAllTextPath(index.c_str()));
  if (takeException()) return kVersions.size();
  return static_cast<int>(std::find(kVersions.begin(), kVersions.end(), found) - kVersions.begin());
}

// Orders of two publishers "a" and "b" and a reader "r", each once for each of its system calls.
class Orders {
 public:
  explicit Orders(bool sameTemporary) : sameTemporary_(sameTemporary) {}

  // Runs one of so many orders of these processes. Returns whether each kept what is promised.
  bool run(const std::string& processes, std::size_t every) {
    std::string order;
    for (const char process : processes) {
      order.append(callsOf(process), process);
    }
    std::size_t number = 0;
    std::size_t runs = 0;
    do {
      if (number++ % every != 0) continue;
      ++runs;
      const std::string wrong = wrongIn(order, processes);
      if (wrong.empty()) continue;
      std::printf("order %s: %s\n", order.c_str(), wrong.c_str());
      return false;
    } while (std::next_permutation(order.begin(), order.end()));
    std::printf("%s: %zu of %zu orders of %zu system calls\n", processes.c_str(), runs, number,
                order.size());
    return true;
  }

 private:
  // Temporary files have numbers, which each process counts for itself: "b" begins with another one
  // after a publication that fails.
  std::unique_ptr<Process> start(char process) const {
    const fs::path index = folder_.index();
    const auto prepare = [skips = process == 'b' && !sameTemporary_] {
      if (skips) publish("/proc/no/such/folder", "");
    };
    const auto work = [index, process] {
      return process == 'r' ? read(index) : publish(index, kVersions[process == 'a' ? 1 : 2]);
    };
    return std::make_unique<Process>(prepare, work);
  }

  std::size_t callsOf(char process) const {
    std::ofstream(folder_.index(), std::ios::binary) << kVersions[0];
    const std::unique_ptr<Process> alone = start(process);
    std::size_t calls = 0;
    for (; !alone->status(); ++calls) alone->advance();
    if (alone->status() == kSkipped) {
      std::printf("skipped: ptrace is not permitted here\n");
      std::exit(kSkipped);
    }
    return calls;
  }

  // What is wrong after the processes made their calls in this order; empty if nothing is.
  std::string wrongIn(const std::string& order, const std::string& processes) const {
    std::ofstream(folder_.index(), std::ios::binary) << kVersions[0];
    std::map<char, std::unique_ptr<Process>> running;
    for (const char process : processes) running[process] = start(process);
    for (const char process : order) {
      if (running[process]->status()) return "a process made fewer calls than alone";
      running[process]->advance();
    }
    for (const auto& [name, process] : running) {
      if (!process->status()) return "a process made more calls than alone";
      const int status = *process->status();
      if (name != 'r' && status != 0) return "a publication raised an exception";
      if (name == 'r' && (status < 0 || status >= static_cast<int>(kVersions.size()))) {
        return "the reader did not read a whole version";
      }
    }
    const std::string last = contentsOf(folder_.index());
    const bool isOfA = processes.find('a') != std::string::npos && last == kVersions[1];
    const bool isOfB = processes.find('b') != std::string::npos && last == kVersions[2];
    if (!isOfA && !isOfB) return "the last version is not whole";
    if (folder_.names() != std::vector<std::string>{"index"}) return "a temporary was left";
    return "";
  }

  bool sameTemporary_;
  Folder folder_;
};

}  // namespace

int main(int count, char** arguments) {
  const bool sameTemporary = count > 1 && std::string_view(arguments[1]) == "--same-temporary";
  const int every = count > 1 && !sameTemporary ? std::atoi(arguments[1]) : 1;
  if (every < 1 || count > 2) {
    std::fprintf(stderr, "usage: %s [EVERY] | --same-temporary\n", arguments[0]);
    return 2;
  }
  Orders orders(sameTemporary);
  if (sameTemporary) return orders.run("ab", 1) ? 1 : 0;
  const bool passed = orders.run("ar", 1) && orders.run("ab", 1) &&
                      orders.run("abr", static_cast<std::size_t>(every));
  return passed ? 0 : 1;
}
