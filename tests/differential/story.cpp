#include "tests/differential/story.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace quen::differential {

namespace {

// The file to which a child writes its log directly, so that no line is lost if it crashes.
int gTold = -1;

// The parts of a log. Lines that belong to the line before them, such as the outcome of a call,
// begin with two spaces.
std::vector<std::string> parts(const std::string& told) {
  std::vector<std::string> parts;
  std::istringstream lines(told);
  for (std::string line; std::getline(lines, line);) {
    if (parts.empty() || !line.starts_with("  ")) parts.emplace_back();
    parts.back() += line + '\n';
  }
  return parts;
}

// The parts that differ, of which a log may have thousands.
std::string differences(const std::string& plain, const std::string& module) {
  const std::vector<std::string> expected = parts(plain);
  const std::vector<std::string> found = parts(module);
  std::string different;
  for (std::size_t i = 0; i < std::max(expected.size(), found.size()); ++i) {
    const std::string one = i < expected.size() ? expected[i] : "nothing\n";
    const std::string other = i < found.size() ? found[i] : "nothing\n";
    if (one != other) different += "plain form: " + one + "module: " + other;
  }
  return different;
}

}  // namespace

Outcome Story::call(std::string_view entry, const Arguments& arguments,
                    const Circumstances& circumstances) {
  Outcome outcome = form_.call(entryPoint(entry), arguments, circumstances);
  const bool mayWait =
      entry.ends_with("writeHandle") && outcome.thrown.empty() &&
      arguments.at(1).text.size() <= kWriterBuffer &&
      (outcome.exception.empty() || outcome.exception == "IOException: Failed to write file");
  // Whether a text that may be buffered could be written is compared at the flush.
  tell(std::string(entry) + '\n' + (mayWait ? "  written or waiting\n" : describe(outcome)));
  return outcome;
}

std::int64_t Story::open(const std::string& path, bool append, const Circumstances& circumstances) {
  const Outcome outcome = form_.call(entryPoint("quen_io_FileWriter__openPath"),
                                     {text(path), number(append ? 1 : 0)}, circumstances);
  tell("open " + path + ' ' + (outcome.result == "0" ? outcome.exception : "gives a handle"));
  return outcome.result.empty() ? 0 : std::stoll(outcome.result);
}

void Story::tell(std::string_view line) {
  told_ += std::string(line) + '\n';
  if (gTold < 0) return;
  const std::string bytes = std::string(line) + '\n';
  [[maybe_unused]] const ssize_t written = write(gTold, bytes.data(), bytes.size());
}

void Story::tellFile(std::string_view name) {
  std::ifstream file(*this / name, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  tell(std::string(name) + " holds " + std::to_string(content.size()) + " bytes, " +
       std::to_string(std::hash<std::string>()(content)));
}

void Story::inChild(const std::function<void(Story& child)>& body) {
  const std::filesystem::path file = form_.folder().parent_path() / "told";
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_NE(descriptor, -1);
  static_cast<void>(std::fflush(nullptr));
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    constexpr unsigned kSeconds = 20;
    alarm(kSeconds);
    gTold = descriptor;
    Story story(form_);
    body(story);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  close(descriptor);
  std::ifstream stream(file, std::ios::binary);
  told_.append(std::istreambuf_iterator<char>(stream), {});
  std::filesystem::remove(file);
  tell(WIFEXITED(status) ? "ended with " + std::to_string(WEXITSTATUS(status))
                         : "killed by signal " + std::to_string(WTERMSIG(status)));
}

Judge& freshJudge() {
  static Judge judge;
  judge.clear();
  return judge;
}

std::string expectSame(const std::function<void(Story& story)>& tell) {
  const Judge& judge = freshJudge();
  Story plain(judge.plain());
  tell(plain);
  Story module(judge.module());
  tell(module);
  EXPECT_EQ(differences(plain.told(), module.told()), "");
  EXPECT_EQ(judge.compareFolders(), "");
  return module.told();
}

}  // namespace quen::differential
