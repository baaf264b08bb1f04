// quen-io index: a folder tree as JSON Lines, published in one step.

#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "driver/commands.h"
#include "driver/index_summary.h"
#include "driver/interrupts.h"
#include "driver/json_text.h"
#include "driver/progress.h"
#include "driver/publication.h"
#include "driver/text.h"
#include "driver/walk.h"
#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::driver {

namespace {

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::kFile: return "file";
    case Kind::kFolder: return "folder";
    case Kind::kLink: return "link";
    case Kind::kOther: return "other";
    case Kind::kMissing: break;
  }
  return "missing";
}

const char* nameOf(Text text) {
  switch (text) {
    case Text::kUtf8: return "utf-8";
    case Text::kNotUtf8: return "not utf-8";
    case Text::kNotRead: break;
  }
  return "not read";
}

Json toJson(const Entry& entry) {
  Json json;
  putText(json, "path", entry.path);
  json["kind"] = nameOf(entry.kind);
  if (entry.kind == Kind::kLink) {
    putText(json, "target", entry.target);
  } else if (entry.kind != Kind::kMissing) {
    json["size"] = entry.size;
    json["modified_ms"] = entry.modifiedMs;
  }
  if (entry.kind == Kind::kFile) json["text"] = nameOf(entry.text);
  if (!entry.fault.empty()) {
    json["fault"] = entry.fault;
    json["fault_byte"] = entry.faultByte;
  }
  if (!entry.error.empty()) putText(json, "error", entry.error);
  return json;
}

struct Index {
  std::string lines;
  IndexSummary summary;
  std::string rootError;
};

Walk planOf(const IndexOptions& options) {
  Walk plan;
  plan.root = options.folder;
  plan.maxTextBytes = options.maxTextBytes;
  if (options.maxDepth) plan.maxDepth = *options.maxDepth;
  plan.oneFileSystem = options.oneFileSystem;
  plan.excluded = options.excluded;
  return plan;
}

Index indexOf(const IndexOptions& options, Progress& progress) {
  Index index;
  Walk plan = planOf(options);
  plan.visit = [&](const Entry& entry) {
    index.lines += toLine(toJson(entry)) + '\n';
    index.summary.add(entry);
    if (index.summary.entries() == 1) index.rootError = entry.error;
    progress.show(index.summary.entries(), index.summary.bytes(), entry.path);
  };
  walk(plan);
  progress.erase();
  return index;
}

// The options that affect the index, so that a reader can tell whether two indexes are comparable.
std::string headerOf(const IndexOptions& options, std::size_t entries) {
  Json header = {{"format", "quen-io-index"}, {"version", 1}};
  putText(header, "root", options.folder);
  header["entries"] = entries;
  header["max_text_bytes"] = options.maxTextBytes;
  if (options.maxDepth) header["max_depth"] = *options.maxDepth;
  if (options.oneFileSystem) header["one_file_system"] = true;
  for (const std::string& pattern : options.excluded) {
    Json excluded;
    putText(excluded, "pattern", pattern);
    header["excluded"].push_back(excluded);
  }
  return toLine(header) + '\n';
}

// The reason why the folder cannot be indexed, if there is one.
std::optional<std::string> refusalOf(const IndexOptions& options, const Publication& publication) {
  const small::Scope scope;
  void* folder = small::newFolderPath(options.folder);
  if (quen_io_Path__isDirectory(folder)) return publication.refusal();
  const bool exists = quen_io_Path__exists(folder);
  return (exists ? "not a folder: " : "no such folder: ") + inQuotes(options.folder);
}

int fail(const std::string& words) {
  complain(words);
  return kNotPublished;
}

}  // namespace

int runIndex(const IndexOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  Publication publication(options.output);
  if (const auto refusal = refusalOf(options, publication)) return fail(*refusal);

  Progress progress(!options.quiet);
  const Interrupts interrupts([&] {
    const std::string erased(progress.stop());
    if (publication.abandon()) return;
    tellIfPossible(erased + "quen-io: interrupted, no index published\n");
  });
  Index index = indexOf(options, progress);
  const IndexSummary& summary = index.summary;
  if (summary.entries() == 1 && !index.rootError.empty()) {
    return fail("cannot walk " + inQuotes(options.folder) + ": " + escaped(index.rootError));
  }
  index.lines.insert(0, headerOf(options, summary.entries()));
  if (const auto reason = publication.publish(index.lines)) return fail(*reason);

  if (!options.quiet) {
    std::ostream& output = publication.isStandardOutput() ? std::cerr : std::cout;
    summary.print(output, options.maxTextBytes, std::chrono::steady_clock::now() - start);
    if (!publication.isStandardOutput()) {
      output << "index in " << inQuotes(options.output) << '\n';
    }
  }
  return summary.unreadable() == 0 ? kDone : kRaised;
}

}  // namespace quen::driver
