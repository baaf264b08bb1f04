// A second runtime, for looking at what the module asks of the first: the small runtime's objects
// behind operations that note every call and answer as they are told.
//
// A program links quen_recording_runtime before quen_small_runtime, whose symbols it replaces;
// everything in runtime/small/host.h works on its objects.
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

// Notes the calls of all threads while it lives; there is at most one at a time. The members are
// set before the calls that they are meant for.
class Recorder {
 public:
  Recorder();
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // One line a call, as it would be written: Quen_isInstanceOf(self, "FolderPath") -> 0
  std::vector<std::string> calls() const;

  // How many exceptions were raised.
  int raises() const;

  // How an object is called in the notes. Others are described: String "a", FolderPath "a/b".
  std::map<void*, std::string> names;

  // The kinds that are found at these paths, in place of what is there.
  std::map<std::filesystem::path, QuenPathEntryKind> kinds;

  // The texts that have a drive or UNC root, beside those that really do.
  std::set<std::string> windowsRoots;

  // Names that no class has.
  std::set<std::string> unknownClasses;

  // When set, every Byte[] is refused with these words.
  std::optional<std::string> refusal;

  // Called with the name of each operation right after it was noted. What it throws leaves the
  // operation.
  std::function<void(const std::string& operation)> interfere;
};

}  // namespace quen::recording
