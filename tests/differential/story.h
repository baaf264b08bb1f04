// A log of what a form does in one scenario, which is compared between the forms as a whole. For
// scenarios that need a fresh setup for each form or a child process.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "tests/differential/judge.h"

namespace quen::differential {

class Story {
 public:
  explicit Story(const Form& form) : form_(form) {}

  const Form& form() const { return form_; }
  std::filesystem::path operator/(std::string_view name) const { return form_.folder() / name; }

  // Makes a call and logs its outcome.
  Outcome call(std::string_view entry, const Arguments& arguments,
               const Circumstances& circumstances = {});

  // Opens a writer and logs the outcome. Returns its handle, which is not logged because it may
  // differ between the forms; 0 if it raised.
  std::int64_t open(const std::string& path, bool append = false,
                    const Circumstances& circumstances = {});

  // Logs a line, or the contents of a file.
  void tell(std::string_view line);
  void tellFile(std::string_view name);

  // Runs the body in a forked child and logs its lines and its exit status. SIGALRM kills a child
  // that hangs.
  void inChild(const std::function<void(Story& child)>& body);

  const std::string& told() const { return told_; }

 private:
  const Form& form_;
  std::string told_;
};

// The judge of this process, with empty folders.
Judge& freshJudge();

// Runs the scenario with both forms and expects equal logs. Returns the module's.
std::string expectSame(const std::function<void(Story& story)>& tell);

}  // namespace quen::differential
