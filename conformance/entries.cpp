// The kinds of file-system entries, as the runtime reports them.

#include <filesystem>
#include <fstream>

#include "conformance/operations.h"
#include "conformance/requirement.h"
#include "conformance/scratch_folder.h"

namespace fs = std::filesystem;

namespace quen::conformance {

namespace {

fs::path newFile(const fs::path& path) {
  std::ofstream(path) << "contents";
  return path;
}

fs::path newFolder(const fs::path& path) {
  fs::create_directory(path);
  return path;
}

fs::path newLink(const fs::path& path, const fs::path& target) {
  fs::create_symlink(target, path);
  return path;
}

bool isFileOrDirectory(QuenPathEntryKind kind) {
  return kind == QuenPathEntryKind::kRegularFile || kind == QuenPathEntryKind::kDirectory;
}

std::string shownKind(QuenPathEntryKind kind) {
  return "the kind " + std::to_string(static_cast<std::int32_t>(kind));
}

void requireKind(const fs::path& path, QuenPathEntryKind expected) {
  const QuenPathEntryKind kind = operations::pathEntryKind(path);
  require(kind == expected, shownKind(kind));
}

void requireNeitherKind(const fs::path& path) {
  const QuenPathEntryKind kind = operations::pathEntryKind(path);
  require(!isFileOrDirectory(kind), shownKind(kind));
}

// Names are bytes: the kernel does not interpret them (path_resolution(7)).
void requireKindOfInvalidUtf8(const Adapter&) {
  const ScratchFolder scratch;
  requireKind(newFolder(scratch / "\xFF\xC3("), QuenPathEntryKind::kDirectory);
}

// The module does not report what it removes.
void requireRecordNotBelieved(const Adapter&) {
  const ScratchFolder scratch;
  const fs::path file = newFile(scratch / "file");
  operations::cachePathEntryKind(file, QuenPathEntryKind::kRegularFile);
  fs::remove(file);
  requireNeitherKind(file);
  require(!operations::pathExists(file), "the removed entry is found");
}

}  // namespace

Requirements entryRequirements() {
  return {
      {"Quen_pathEntryKind gives 1 for a regular file",
       [](const Adapter&) {
         const ScratchFolder scratch;
         requireKind(newFile(scratch / "file"), QuenPathEntryKind::kRegularFile);
       }},

      {"Quen_pathEntryKind gives 2 for a directory",
       [](const Adapter&) {
         const ScratchFolder scratch;
         requireKind(newFolder(scratch / "folder"), QuenPathEntryKind::kDirectory);
         requireKind("/", QuenPathEntryKind::kDirectory);
       }},

      {"Quen_pathEntryKind follows links to files and directories",
       [](const Adapter&) {
         const ScratchFolder scratch;
         const fs::path folder = newFolder(scratch / "folder");
         const fs::path file = newFile(scratch / "file");
         requireKind(newLink(scratch / "to folder", folder), QuenPathEntryKind::kDirectory);
         requireKind(newLink(scratch / "to file", file), QuenPathEntryKind::kRegularFile);
       }},

      {"Quen_pathEntryKind gives neither 1 nor 2 for what is missing",
       [](const Adapter&) {
         const ScratchFolder scratch;
         requireNeitherKind(scratch / "missing");
         requireNeitherKind(newFile(scratch / "file") / "below");
         requireNeitherKind(newLink(scratch / "dangling", "nowhere"));
         requireNeitherKind("");
       }},

      {"Quen_pathEntryKind gives neither 1 nor 2 for a device",
       [](const Adapter&) { requireNeitherKind("/dev/null"); }},

      {"Quen_pathEntryKind takes names of invalid UTF-8", requireKindOfInvalidUtf8},

      {"Quen_cachePathEntryKind takes any kind of any path",
       [](const Adapter&) {
         const ScratchFolder scratch;
         for (const fs::path& path : {scratch / "missing", fs::path(), fs::path("\xFF"),
                                      fs::path(std::string(65536, 'x'))}) {
           for (const int kind : {0, 1, 2, 3}) {
             operations::cachePathEntryKind(path, static_cast<QuenPathEntryKind>(kind));
           }
         }
       }},

      {"Quen_cachePathEntryKind leaves it at the kind that Quen_pathEntryKind gave",
       [](const Adapter&) {
         const ScratchFolder scratch;
         const fs::path file = newFile(scratch / "file");
         const fs::path folder = newFolder(scratch / "folder");
         operations::cachePathEntryKind(file, operations::pathEntryKind(file));
         operations::cachePathEntryKind(folder, operations::pathEntryKind(folder));
         requireKind(file, QuenPathEntryKind::kRegularFile);
         requireKind(folder, QuenPathEntryKind::kDirectory);
       }},

      {"Quen_pathEntryKind and Quen_pathExists do not believe a record of what has been removed",
       requireRecordNotBelieved, Severity::kAdvised},

      {"Quen_pathExists finds files, directories and devices",
       [](const Adapter&) {
         const ScratchFolder scratch;
         require(operations::pathExists(newFile(scratch / "file")), "no file is found");
         require(operations::pathExists(newFolder(scratch / "folder")), "no directory is found");
         require(operations::pathExists("/dev/null"), "no device is found");
       }},

      {"Quen_pathExists finds nothing where nothing is",
       [](const Adapter&) {
         const ScratchFolder scratch;
         require(!operations::pathExists(scratch / "missing"), "a missing entry is found");
         require(!operations::pathExists(newFile(scratch / "file") / "below"),
                 "an entry below a file is found");
         require(!operations::pathExists(""), "the empty path is found");
       }},
  };
}

}  // namespace quen::conformance
