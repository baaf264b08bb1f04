#include "tests/environments/every_call.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace quen::differential {

namespace {

constexpr std::string_view kRefused = "the environment is refused: ";

// The entries of a folder. The last two do not exist.
constexpr std::array<std::string_view, 6> kEntries = {"file",     "folder",  "link",
                                                      "dangling", "missing", "missing/below"};

void makeEntries(const fs::path& folder) {
  fs::create_directories(folder / "folder");
  std::ofstream(folder / "file") << std::string(5'000, 'f');
  std::ofstream(folder / "folder/entry") << "entry";
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
}

// Leaves the working directory as it is.
Circumstances inPlace() {
  Circumstances circumstances;
  circumstances.entersFolder = false;
  return circumstances;
}

Arguments argumentsFor(const EntryPoint& entry, const std::string& folder,
                       const std::string& target) {
  Arguments arguments;
  for (const char role : entry.roles) {
    const std::string name = folder + (arguments.empty() ? target : "folder");
    switch (role) {
      case 'o': arguments.push_back(path(name)); break;
      case 'p': arguments.push_back(text(name)); break;
      case 'd': arguments.push_back(text("operand")); break;
      case 'n': arguments.push_back(text("renamed")); break;
      case 't': arguments.push_back(text("text")); break;
      case 'B': arguments.push_back(bytes("bytes")); break;
      default: arguments.push_back(number(3)); break;
    }
  }
  return arguments;
}

void useWriter(Story& story, std::int64_t handle) {
  if (handle == 0) return;
  story.call("quen_io_FileWriter__writeHandle", {number(handle), text("more")}, inPlace());
  story.call("quen_io_FileWriter__flushHandle", {number(handle)}, inPlace());
  story.call("quen_io_FileWriter__closeHandle", {number(handle)}, inPlace());
}

bool changesEntries(const EntryPoint& entry) {
  static constexpr std::array<std::string_view, 9> kWords = {
      "remove", "rename", "touch", "mkdir", "truncate", "append", "write", "openPath", "Atomic"};
  return std::any_of(kWords.begin(), kWords.end(), [&](std::string_view word) {
    return entry.name.find(word) != std::string_view::npos;
  });
}

// An entry point that changes entries has a folder of its own.
std::string folderOf(const EntryPoint& entry) {
  return changesEntries(entry) ? "of " + std::string(entry.name) + '/' : "of all/";
}

void makeAllEntries(const Story& story) {
  for (const EntryPoint& entry : entryPoints()) {
    for (const char* place : {"relative ", "absolute "}) {
      const fs::path folder = story / (place + folderOf(entry));
      if (!fs::exists(folder)) makeEntries(folder);
    }
  }
}

// The entry points of handles are called through useWriter, with the writers of openPath.
void callOn(Story& story, const EntryPoint& entry, const std::string& folder) {
  if (entry.roles.starts_with('h')) return;
  for (const std::string_view target : kEntries) {
    const Arguments arguments = argumentsFor(entry, folder, std::string(target));
    story.tell(folder + std::string(target));
    if (entry.roles.ends_with('a')) {
      for (const bool append : {false, true}) {
        useWriter(story, story.open(arguments[0].text, append, inPlace()));
      }
    } else {
      story.call(entry.name, arguments, inPlace());
    }
    if (entry.roles.empty()) return;  // takes no path
  }
}

void callEverything(Story& story, const std::vector<std::string>& prefixes) {
  for (const EntryPoint& entry : entryPoints()) {
    for (const std::string& prefix : prefixes) callOn(story, entry, prefix + folderOf(entry));
  }
}

// Leaves the child if it cannot enter.
void enterOrLeave(const Environment& environment, Story& child) {
  fs::current_path(child.form().folder());
  const int refusal = environment.enter(child);
  if (refusal == 0) return;
  child.tell(std::string(kRefused) + (refusal == kNoEffect ? "no effect" : std::strerror(refusal)));
  _exit(0);
}

// Whether refusing is a matter of permissions or of the kernel's configuration.
bool mayBeRefused(const std::string& refusal) {
  for (const int error : {EPERM, EACCES, ENOSYS, EINVAL, ENOSPC, ENODEV, ENOENT}) {
    if (refusal == std::strerror(error)) return true;
  }
  return false;
}

std::string refusalIn(const std::string& told) {
  const std::size_t at = told.find(kRefused);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + kRefused.size();
  return told.substr(begin, told.find('\n', begin) - begin);
}

}  // namespace

std::string expectSameIn(const Environment& environment) {
  const std::string told = expectSame([&](Story& story) {
    makeAllEntries(story);
    const std::int64_t openBefore = story.open("written");
    environment.prepare(story);
    story.inChild([&](Story& child) {
      enterOrLeave(environment, child);
      callEverything(child, environment.prefixes);
      useWriter(child, openBefore);
    });
    environment.cleanUp(story);
    story.call("quen_io_FileWriter__closeHandle", {number(openBefore)});
  });

  const std::string refusal = refusalIn(told);
  if (refusal.empty()) {
    EXPECT_GT(count(told, "  result: "), 300) << "the child made too few calls";
    EXPECT_EQ(count(told, "ended with 0"), 1) << "a child ended early";
    return told;
  }
  EXPECT_TRUE(mayBeRefused(refusal)) << refusal;
  [&] { GTEST_SKIP() << "the system refuses this environment: " << refusal; }();
  return "";
}

std::size_t count(const std::string& told, std::string_view outcome) {
  std::size_t found = 0;
  for (std::size_t at = told.find(outcome); at != std::string::npos;
       at = told.find(outcome, at + outcome.size())) {
    ++found;
  }
  return found;
}

}  // namespace quen::differential
