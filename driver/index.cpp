// quen-io index: a folder tree as JSON Lines, published in one step.

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "driver/commands.h"
#include "driver/json_text.h"
#include "driver/progress.h"
#include "driver/text.h"
#include "driver/walk.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

const char* const kIndexHelp =
    "The first line of the index describes it, each further line is one entry:\n"
    "  path         from FOLDER on; \".\" is FOLDER itself\n"
    "  kind         file, folder, link, other (a device, a pipe), missing (it cannot be accessed)\n"
    "  size         in bytes, 0 for what is no file; not for a link and what is missing\n"
    "  modified_ms  milliseconds since 1970; not for a link and what is missing\n"
    "  text         of a file: utf-8, not utf-8, not read (too large or unreadable)\n"
    "  fault        why it is not UTF-8, and fault_byte: the offset of the first fault\n"
    "  error        why the entry could not be read; a folder may then have contents that are\n"
    "               missing here\n"
    "Each folder is followed by what is in it, names in the order of their bytes. Links are not\n"
    "followed, but FOLDER is. Names are any bytes: where path is not UTF-8 it shows U+FFFD, and\n"
    "path_hex holds all bytes.\n"
    "An unchanged tree gives the same index again, but for times: they can fall short by what\n"
    "passes between two clock readings, so usually by less than a millisecond. An index that lies\n"
    "in FOLDER is an entry of it the next time.";

namespace {

constexpr std::array<const char*, 5> kKindNames = {"file", "folder", "link", "other", "missing"};
constexpr std::array<const char*, 3> kTextNames = {"utf-8", "not utf-8", "not read"};
constexpr std::size_t kMostNamed = 10;

Json toJson(const Entry& entry) {
  Json json;
  putText(json, "path", entry.path);
  json["kind"] = kKindNames[static_cast<std::size_t>(entry.kind)];
  if (entry.kind != Kind::kLink && entry.kind != Kind::kMissing) {
    json["size"] = entry.size;
    json["modified_ms"] = entry.modifiedMs;
  }
  if (entry.kind == Kind::kFile) json["text"] = kTextNames[static_cast<std::size_t>(entry.text)];
  if (!entry.fault.empty()) {
    json["fault"] = entry.fault;
    json["fault_byte"] = entry.faultByte;
  }
  if (!entry.error.empty()) putText(json, "error", entry.error);
  return json;
}

// What the summary tells.
struct Counts {
  std::size_t entries = 0;
  std::array<std::size_t, kKindNames.size()> kinds{};
  std::array<std::size_t, kTextNames.size()> texts{};
  std::int64_t bytes = 0;
  std::size_t unreadable = 0;
  std::vector<std::string> named;  // the first that were unreadable, each with its reason

  void add(const Entry& entry) {
    ++entries;
    ++kinds[static_cast<std::size_t>(entry.kind)];
    if (entry.kind == Kind::kFile) ++texts[static_cast<std::size_t>(entry.text)];
    bytes += entry.size;
    if (entry.error.empty()) return;
    if (++unreadable <= kMostNamed)
      named.push_back(inQuotes(entry.path) + ": " + escaped(entry.error));
  }
};

struct Index {
  std::string lines;
  Counts counts;
  std::string rootError;
};

// Set by the first interrupt, which lets the walk end in order; a second one ends the process.
volatile std::sig_atomic_t gInterrupted = 0;

void interruptOnce() {
  struct sigaction action = {};
  action.sa_handler = [](int) { gInterrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

Index indexOf(const IndexOptions& options) {
  Index index;
  Progress progress;
  const auto visit = [&](const Entry& entry) {
    index.lines += toLine(toJson(entry)) + '\n';
    index.counts.add(entry);
    if (index.counts.entries == 1) index.rootError = entry.error;
    progress.show(index.counts.entries, index.counts.bytes, entry.path);
    return gInterrupted == 0;
  };
  walk({options.folder, options.maxTextBytes, visit});
  return index;
}

std::string headerOf(const IndexOptions& options, const Counts& counts) {
  Json header = {{"format", "quen-io-index"}, {"version", 1}};
  putText(header, "root", options.folder);
  header["entries"] = counts.entries;
  header["max_text_bytes"] = options.maxTextBytes;
  return toLine(header) + '\n';
}

void printCount(const std::string& label, std::size_t count, const std::string& note = "") {
  std::cout << std::left << std::setw(16) << label << std::right << std::setw(14) << count << note
            << '\n';
}

void printSummary(const IndexOptions& options, const Counts& counts,
                  std::chrono::steady_clock::duration elapsed) {
  constexpr std::array<const char*, 5> kKindLabels = {"  files", "  folders", "  links", "  other",
                                                      "  missing"};
  printCount("entries", counts.entries);
  for (std::size_t i = 0; i < kKindLabels.size(); ++i) printCount(kKindLabels[i], counts.kinds[i]);
  printCount("bytes", static_cast<std::size_t>(counts.bytes));
  printCount("valid UTF-8", counts.texts[0], " files");
  printCount("not UTF-8", counts.texts[1], " files");
  printCount("not read", counts.texts[2],
             " files, larger than " + std::to_string(options.maxTextBytes) + " or unreadable");
  printCount("unreadable", counts.unreadable, " entries");
  for (const std::string& each : counts.named) std::cout << "  " << each << '\n';
  if (counts.unreadable > counts.named.size()) {
    std::cout << "  and " << counts.unreadable - counts.named.size() << " more\n";
  }
  const std::chrono::duration<double> seconds = elapsed;
  std::cout << std::left << std::setw(16) << "elapsed" << std::right << std::setw(14) << std::fixed
            << std::setprecision(2) << seconds.count() << " s\n";
  std::cout << "index in " << inQuotes(options.output) << '\n';
}

}  // namespace

int runIndex(const IndexOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  {
    const small::Scope scope;
    void* folder = small::newFolderPath(options.folder);
    if (!quen_io_Path__isDirectory(folder)) {
      const bool exists = quen_io_Path__exists(folder);
      complain((exists ? "not a folder: " : "no such folder: ") + inQuotes(options.folder));
      return kNotPublished;
    }
  }
  interruptOnce();
  Index index = indexOf(options);
  const Counts& counts = index.counts;
  if (gInterrupted != 0) {
    complain("interrupted, no index published");
    return kInterrupted;
  }
  if (counts.entries == 1 && !index.rootError.empty()) {
    complain("cannot walk " + inQuotes(options.folder) + ": " + escaped(index.rootError));
    return kNotPublished;
  }
  index.lines.insert(0, headerOf(options, counts));
  quen_data_internal_DocumentIndexStore__writeAtomic(options.output.c_str(), index.lines.c_str());
  if (const auto raised = small::takeException()) {
    complain(inQuotes(options.output) + ": " + escaped(raised->message));
    return kNotPublished;
  }
  printSummary(options, counts, std::chrono::steady_clock::now() - start);
  return counts.unreadable == 0 ? kDone : kRaised;
}

}  // namespace quen::driver
