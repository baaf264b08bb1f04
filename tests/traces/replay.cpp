// Replays call traces. Each is the transcript of a few commands that shows one claim about the
// runtime operations that an entry point calls.
//
//   quen_io_traces FILE...            compares the output of the commands with the file
//   quen_io_traces --record FILE...   writes the output into the file
//
// A line that begins with "$ " is a command. The lines below it are its output, up to the next
// command, comment ("# ") or blank line. All commands of a file run in one new process, starting in
// one empty folder, which is written $PWD in commands and output. The commands are
//
//   quen-io call --trace ENTRY ARG... [>/dev/null]   one call, printed by the driver's own code
//   runtime windows-root TEXT                        from then on TEXT has a drive or UNC root,
//   runtime kind PATH NUMBER                         an entry of this kind is at PATH,
//   runtime no-class NAME                            no object is of this class,
//   runtime refuse-bytes WORDS                       every Byte[] is refused with these words
//   export NAME=VALUE, cd FOLDER                     for the process of the calls
//   anything else                                    run by the shell, to prepare or look at files
//
// A call that raises more than one exception always fails.

#include <sys/wait.h>
#include <unistd.h>
#include <wordexp.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "driver/call.h"
#include "driver/entry_table.h"
#include "driver/text.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using quen::recording::Recorder;

namespace {

using Words = std::vector<std::string>;

constexpr std::string_view kPrompt = "$ ";
constexpr std::string_view kCall = "quen-io call --trace ";
constexpr std::string_view kDiscard = " >/dev/null";

// The words of a command with quotes removed and variables expanded, as a shell would.
Words wordsOf(const std::string& command) {
  wordexp_t expanded;
  if (wordexp(command.c_str(), &expanded, WRDE_NOCMD | WRDE_UNDEF) != 0) {
    throw std::runtime_error("cannot split into words: " + command);
  }
  Words words(expanded.we_wordv, expanded.we_wordv + expanded.we_wordc);
  wordfree(&expanded);
  return words;
}

void replaceAll(std::string& text, const std::string& from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// Redirects a stream for a scope.
class Redirection {
 public:
  Redirection(std::ostream& stream, std::streambuf* target)
      : stream_(stream), original_(stream.rdbuf(target)) {}
  ~Redirection() { stream_.rdbuf(original_); }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

 private:
  std::ostream& stream_;
  std::streambuf* original_;
};

class Session {
 public:
  std::string run(std::string command) {
    if (!command.starts_with(kCall)) return runOther(command);
    const bool discards = command.ends_with(kDiscard);
    if (discards) command.erase(command.size() - kDiscard.size());
    return call(wordsOf(command.substr(kCall.size())), discards);
  }

  bool hasCalled() const { return hasCalled_; }

 private:
  std::string runOther(const std::string& command) {
    if (command.starts_with("runtime ")) {
      setCondition(wordsOf(command));
    } else if (command.starts_with("export ")) {
      const std::string setting = wordsOf(command).at(1);
      const std::size_t end = setting.find('=');
      setenv(setting.substr(0, end).c_str(), setting.substr(end + 1).c_str(), 1);
    } else if (command.starts_with("cd ")) {
      fs::current_path(wordsOf(command).at(1));
    } else {
      return runShell(command);
    }
    return "";
  }

  void setCondition(const Words& words) {
    static const std::map<std::string, std::function<void(Recorder&, const Words&)>> conditions{
        {"windows-root", [](Recorder& r, const Words& w) { r.windowsRoots.insert(w.at(2)); }},
        {"kind", [](Recorder& r,
                    const Words& w) { r.kinds[w.at(2)] = QuenPathEntryKind{std::stoi(w.at(3))}; }},
        {"no-class", [](Recorder& r, const Words& w) { r.unknownClasses.insert(w.at(2)); }},
        {"refuse-bytes", [](Recorder& r, const Words& w) { r.refusal = w.at(2); }},
    };
    const auto condition = conditions.find(words.at(1));
    if (condition == conditions.end()) throw std::runtime_error("no condition: " + words[1]);
    condition->second(recorder_, words);
  }

  std::string call(Words words, bool discards) {
    hasCalled_ = true;
    const quen::driver::EntryPoint& entry = quen::driver::findEntryPoint(words.at(0));
    words.erase(words.begin());
    // Mutation testing may disable the guard; then the entry point would really remove the folder.
    if (entry.shortName == "FolderPath._removeAllNative" && words.at(0).starts_with('/')) {
      throw std::runtime_error("a trace removes below its own folder only");
    }
    const auto before = static_cast<std::ptrdiff_t>(recorder_.calls().size());
    const int raisesBefore = recorder_.raises();
    const quen::driver::Outcome outcome = quen::driver::callEntryPoint(entry, words);
    if (recorder_.raises() > raisesBefore + 1) throw std::runtime_error("raises more than once");

    const Words calls = recorder_.calls();
    std::ostringstream printed;
    const Redirection error(std::cerr, printed.rdbuf());
    const Redirection output(std::cout, discards ? nullptr : printed.rdbuf());
    quen::driver::printTrace({calls.begin() + before, calls.end()});
    quen::driver::print(outcome);
    return printed.str();
  }

  static std::string runShell(const std::string& command) {
    std::FILE* output = popen(("{ " + command + "\n} 2>&1").c_str(), "re");
    if (output == nullptr) throw std::runtime_error("cannot run: " + command);
    std::string printed;
    for (int byte = 0; (byte = std::fgetc(output)) != EOF;) printed += static_cast<char>(byte);
    if (pclose(output) != 0) throw std::runtime_error("fails: " + command + '\n' + printed);
    return printed;
  }

  const quen::small::Scope scope_;
  Recorder recorder_;
  bool hasCalled_ = false;
};

bool isOutput(const std::string& line) {
  return !line.empty() && !line.starts_with('#') && !line.starts_with(kPrompt);
}

std::string contentsOf(const fs::path& file) {
  std::ostringstream contents;
  const std::ifstream stream(file, std::ios::binary);
  if (!stream) throw std::runtime_error("cannot read it");
  contents << stream.rdbuf();
  return contents.str();
}

// Makes a private folder the working directory for a scope, with a fixed environment.
class Scratch {
 public:
  Scratch() {
    std::string name = fs::temp_directory_path() / "quen-io-trace-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder: " + name);
    path_ = fs::canonical(name);
    fs::current_path(path_);
    setenv("PWD", path_.c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("NO_COLOR", "1", 1);
    unsetenv("HOME");
    unsetenv("QUEN_HOME");
  }

  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// The transcript with the present output of its commands.
std::string replayed(const std::string& transcript) {
  const Scratch scratch;
  Session session;
  std::string replay;
  std::istringstream lines(transcript);
  for (std::string line; std::getline(lines, line);) {
    if (isOutput(line)) continue;
    replay += line + '\n';
    if (!line.starts_with(kPrompt)) continue;
    std::string printed = session.run(line.substr(kPrompt.size()));
    replaceAll(printed, scratch.path(), "$PWD");
    if (!printed.empty() && !printed.ends_with('\n')) printed += '\n';
    replay += printed;
  }
  if (!session.hasCalled()) throw std::runtime_error("calls no entry point");
  return replay;
}

void showDifferences(const fs::path& file, const std::string& replay) {
  const std::string command = "diff -u --label expected --label replayed '" + file.string() + "' -";
  std::FILE* diff = popen(command.c_str(), "we");
  if (diff == nullptr) throw std::runtime_error("it differs, and diff cannot be run");
  std::fwrite(replay.data(), 1, replay.size(), diff);
  pclose(diff);
}

int process(const fs::path& file, bool records) {
  const std::string transcript = contentsOf(file);
  const std::string replay = replayed(transcript);
  if (replay == transcript) return EXIT_SUCCESS;
  if (records) {
    return std::ofstream(file, std::ios::binary) << replay ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  std::cout << file.string() << " shows something else:" << std::endl;
  showDifferences(file, replay);
  return EXIT_FAILURE;
}

// Runs in a child process, because the module keeps handles and the protected homes per process.
bool succeedsInChild(const fs::path& file, bool records) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      std::exit(process(file, records));
    } catch (const std::exception& error) {
      std::cerr << file.string() << ": " << error.what() << '\n';
      std::exit(EXIT_FAILURE);
    }
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int count, char** arguments) {
  Words files(arguments + 1, arguments + count);
  const bool records = !files.empty() && files.front() == "--record";
  if (records) files.erase(files.begin());
  if (files.empty()) {
    std::cerr << "usage: quen_io_traces [--record] FILE...\n";
    return 2;
  }
  bool well = true;
  for (const std::string& file : files) well = succeedsInChild(fs::absolute(file), records) && well;
  return well ? EXIT_SUCCESS : EXIT_FAILURE;
}
