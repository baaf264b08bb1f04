// A runtime that records every call of an operation, and whose answers a test can override. Its
// objects are those of the small runtime.
//
// A program links quen_recording_runtime before quen_small_runtime, so that its symbols take
// precedence; everything in runtime/small/host.h works on its objects.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "quen/io/operations.h"

namespace quen::recording {

// Records the calls of all threads, or of the thread that makes it, during its lifetime. At most
// one of all threads exists at a time, and at most one for each thread, which precedes it. Set its
// members before the calls that they affect.
class Recorder {
 public:
  enum class Of { kAllThreads, kThisThread };

  explicit Recorder(Of whose = Of::kAllThreads);
  ~Recorder();
  Recorder& operator=(Recorder&&) = delete;  // neither copyable nor movable

  // One line per call, in source form: Quen_isInstanceOf(self, "FolderPath") -> 0
  std::vector<std::string> calls() const;

  // The number of raised exceptions.
  int raises() const;

  // The names of objects in the recorded lines. Others are described: String "a", FolderPath "a/b".
  std::map<void*, std::string> names;

  // Kinds to report for these paths, whatever is on disk.
  std::map<std::filesystem::path, QuenPathEntryKind> kinds;

  // Texts to report as having a drive or UNC root, in addition to those that have one.
  std::set<std::string> windowsRoots;

  // Names of classes to treat as unknown.
  std::set<std::string> unknownClasses;

  // If set, every Byte[] is refused with this reason.
  std::optional<std::string> refusal;

  // Called with the name of each operation right after it was recorded. An exception that it throws
  // leaves the operation.
  std::function<void(const std::string& operation)> interfere;

 private:
  Of whose_;
};

}  // namespace quen::recording
