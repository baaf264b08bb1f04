// Makes the same calls of both forms on equal folders, and reports differences.
#pragma once

#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "tests/differential/allowed_differences.h"
#include "tests/differential/forms.h"

namespace quen::differential {

class Judge {
 public:
  // Loads both libraries. Creates two private folders, in /dev/shm if it exists, each with a home
  // that the guard of recursive removal protects. A process has only one judge, because the
  // libraries count handles and publications per process.
  explicit Judge(const std::string& moduleLibrary = defaultModule());

  // The same for one of several threads, with its own scratch folder, which is removed at the end.
  // Handles, and the numbers of temporary files, may then differ between the forms.
  Judge(const std::string& moduleLibrary, std::filesystem::path scratch, const Surroundings& plain,
        const Surroundings& module);
  ~Judge();
  Judge(const Judge&) = delete;
  Judge& operator=(const Judge&) = delete;

  const Form& plain() const { return plain_; }
  const Form& module() const { return module_; }

  // Applies a change to both folders, which are empty at first.
  void inBoth(const std::function<void(const std::filesystem::path& folder)>& change) const;

  // Empties both folders.
  void clear();

  // Makes one call of each form. Returns "" if only allowed differences occur, otherwise both
  // outcomes.
  std::string compare(std::string_view entry, const Arguments& arguments,
                      const Circumstances& circumstances = {});
  std::string compare(const EntryPoint& entry, const Arguments& arguments,
                      const Circumstances& circumstances = {});

  // Compares the two folders: entries, kinds, permissions, links, sizes, contents, and which
  // entries still have the time kOldTime.
  std::string compareFolders() const;

  // The handle that both forms returned last; 0 if they raised.
  std::int64_t lastHandle() const { return lastHandle_; }

  // The path of the module of this build, or the value of QUEN_IO_MODULE.
  static std::string defaultModule();

  std::uint64_t comparedCalls() const { return comparedCalls_; }

  // Called with the outcomes of each call that is compared.
  using Observer =
      std::function<void(const EntryPoint& entry, const Outcome& plain, const Outcome& module)>;
  void observe(Observer observer) { observer_ = std::move(observer); }

  // Counts a call that is not made, because its result cannot be compared.
  void leaveOut() { ++leftOut_; }
  std::uint64_t leftOut() const { return leftOut_; }

  // How often an allowed difference occurred.
  std::uint64_t met(Allowed which) const { return met_.at(static_cast<std::size_t>(which)); }

 private:
  bool isAllowed(const EntryPoint& entry, const Arguments& arguments, const Outcome& plain,
                 const Outcome& module);

  Arguments forModule(const EntryPoint& entry, const Arguments& arguments) const;
  void noteHandles(Outcome& plain, Outcome& module);

  pid_t process_ = getpid();
  std::filesystem::path scratch_;
  bool numbersDiffer_ = false;
  Form plain_;
  Form module_;
  std::int64_t lastHandle_ = 0;
  std::map<std::int64_t, std::int64_t> moduleHandles_;  // by the plain form's, if numbers differ
  Observer observer_;
  std::uint64_t comparedCalls_ = 0;
  std::uint64_t leftOut_ = 0;
  std::array<std::uint64_t, kAllowedDifferences.size()> met_{};
};

// Whether the whole file can be read in a short time; false for endless devices and large files.
bool canBeReadWhole(const std::string& path);

// The modification time of every entry before a program runs, to detect changed entries.
inline constexpr std::int64_t kOldTime = 1'000'000'000;

}  // namespace quen::differential
