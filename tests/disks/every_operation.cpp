#include "tests/disks/every_operation.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using namespace quen::small;

namespace quen::tests {

namespace {

void* byteArray(const std::string& bytes) {
  return newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

// What was raised, with the neutral answer, or else the answer.
std::string outcome(const std::string& answer) {
  const std::optional<Exception> exception = takeException();
  if (!exception) return answer;
  EXPECT_EQ(answer, "") << "an answer beside the exception";
  return exception->className + ": " + exception->message;
}

// The same of what gives no answer, but can be seen on disk.
std::string outcome(std::string (*seen)(const fs::path&), const fs::path& path) {
  const std::string raised = outcome("");
  return raised.empty() ? seen(path) : raised;
}

std::string startOf(const fs::path& file) {
  std::error_code ignored;
  if (!fs::is_regular_file(file, ignored)) return "no file";
  std::string bytes(kReadAtMost, '\0');
  std::ifstream stream(file, std::ios::binary);
  stream.read(bytes.data(), kReadAtMost);
  bytes.resize(static_cast<std::size_t>(stream.gcount()));
  return bytes;
}

std::string presence(const fs::path& path) { return isThere(path) ? "there" : "gone"; }

// By all queries, which have to agree with each other.
std::string entryAt(const fs::path& path) {
  void* self = newPath(path.native());
  const bool exists = quen_io_Path__exists(self);
  const bool regular = quen_io_Path__isRegular(self);
  const bool folder = quen_io_Path__isDirectory(self);
  const std::int64_t size = quen_io_Path__size(self);
  EXPECT_EQ(quen_io_Path__lastModified(self) != 0, exists);
  EXPECT_EQ(quen_io_FileInputStream__existsPath(path.c_str()), exists);
  EXPECT_EQ(quen_io_FileInputStream__isRegularPath(path.c_str()), regular);
  EXPECT_EQ(quen_io_FileInputStream__sizePath(path.c_str()), size);
  EXPECT_TRUE(regular || size == 0) << size;

  const std::string kind = regular  ? "file of " + std::to_string(size) + " bytes"
                           : folder ? "folder"
                           : exists ? "other"
                                    : "nothing";
  return (quen_io_Path__isSymlink(self) ? "link to " : "") + kind;
}

std::string readBytes(const fs::path& path, const std::string&) {
  void* destination = newByteArray(kReadAtMost);
  const std::int64_t count =
      quen_io_FileInputStream__readBytesPath(path.c_str(), 0, destination, kReadAtMost);
  const std::vector<std::uint8_t> bytes = byteArrayContents(destination);
  return outcome({bytes.begin(), bytes.begin() + count});
}

// Ends with the first exception.
std::string writeThroughHandle(const fs::path& path, const std::string& text, bool append) {
  const std::int64_t handle = quen_io_FileWriter__openPath(path.c_str(), append ? 1 : 0);
  if (handle == 0) return outcome("");
  quen_io_FileWriter__writeHandle(handle, text.c_str());
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  return outcome(startOf, path);
}

// The receiver goes where the entry goes.
std::string rename(const fs::path& path, const std::string&) {
  void* self = newPath(path.native());
  quen_io_Path_rename(self, "renamed");
  const fs::path target = path.parent_path() / "renamed";
  const std::string raised = outcome("");
  EXPECT_EQ(pathText(self), raised.empty() ? target.native() : path.native());
  if (!raised.empty()) return raised;
  return isThere(target) && !isThere(path) ? "moved" : "not moved";
}

std::string list(const fs::path& path, const std::string&) {
  std::vector<std::string> names = listStrings(quen_io_FolderPath__listNamesNative(path.c_str()));
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
  return outcome(joined);
}

std::string touched(const fs::path& path, void (*touch)(void*)) {
  touch(newPath(path.native()));
  return outcome(entryAt, path);
}

const Operation kOperations[] = {
    {"queries", &Outcomes::entry,
     [](const fs::path& path, const std::string&) { return outcome(entryAt(path)); }},

    {"FileReader._readAllTextPath", &Outcomes::text,
     [](const fs::path& path, const std::string&) {
       return outcome(stringBytes(quen_io_FileReader__readAllTextPath(path.c_str())));
     }},
    {"FileInputStream._readTextFromOffsetPath", &Outcomes::text,
     [](const fs::path& path, const std::string&) {
       return outcome(
           stringBytes(quen_io_FileInputStream__readTextFromOffsetPath(path.c_str(), 0)));
     }},
    {"TOML._readStrictPath", &Outcomes::text,
     [](const fs::path& path, const std::string&) {
       return outcome(stringBytes(quen_io_toml_TOML__readStrictPath(path.c_str())));
     }},
    {"FileReader._readPrefixPath", &Outcomes::prefix,
     [](const fs::path& path, const std::string&) {
       return outcome(stringBytes(quen_io_FileReader__readPrefixPath(path.c_str(), kReadAtMost)));
     }},
    {"FileInputStream._readBytesPath", &Outcomes::bytes, readBytes},

    {"FileWriter._truncatePath", &Outcomes::truncate,
     [](const fs::path& path, const std::string&) {
       const bool truncated = quen_io_FileWriter__truncatePath(path.c_str());
       return outcome(truncated ? startOf(path) : "");
     }},
    {"FileOutputStream._truncatePath", &Outcomes::truncate,
     [](const fs::path& path, const std::string&) {
       const bool truncated = quen_io_FileOutputStream__truncatePath(path.c_str());
       return outcome(truncated ? startOf(path) : "");
     }},
    {"FileWriter._writePath", &Outcomes::replace,
     [](const fs::path& path, const std::string& text) {
       quen_io_FileWriter__writePath(path.c_str(), text.c_str());
       return outcome(startOf, path);
     }},
    {"Files._writeBytesPath", &Outcomes::replace,
     [](const fs::path& path, const std::string& text) {
       quen_io_Files__writeBytesPath(path.c_str(), byteArray(text));
       return outcome(startOf, path);
     }},
    {"Files._writeBytesWithPrefixPath", &Outcomes::replace,
     [](const fs::path& path, const std::string& text) {
       quen_io_Files__writeBytesWithPrefixPath(path.c_str(), text.substr(0, 1).c_str(),
                                               byteArray(text.substr(1)));
       return outcome(startOf, path);
     }},
    {"a handle to replace", &Outcomes::replace,
     [](const fs::path& path, const std::string& text) {
       return writeThroughHandle(path, text, false);
     }},
    {"FileWriter._appendPath", &Outcomes::append,
     [](const fs::path& path, const std::string& text) {
       quen_io_FileWriter__appendPath(path.c_str(), text.c_str());
       return outcome(startOf, path);
     }},
    {"FileOutputStream._appendTextPath", &Outcomes::append,
     [](const fs::path& path, const std::string& text) {
       quen_io_FileOutputStream__appendTextPath(path.c_str(), text.c_str());
       return outcome(startOf, path);
     }},
    {"FileOutputStream._appendBytesPath", &Outcomes::append,
     [](const fs::path& path, const std::string& text) {
       quen_io_FileOutputStream__appendBytesPath(path.c_str(), byteArray(text));
       return outcome(startOf, path);
     }},
    {"a handle to append", &Outcomes::append,
     [](const fs::path& path, const std::string& text) {
       return writeThroughHandle(path, text, true);
     }},
    {"DocumentIndexStore._writeAtomic", &Outcomes::publish,
     [](const fs::path& path, const std::string& text) {
       quen_data_internal_DocumentIndexStore__writeAtomic(path.c_str(), text.c_str());
       return outcome(startOf, path);
     }},

    {"Path.remove", &Outcomes::remove,
     [](const fs::path& path, const std::string&) {
       quen_io_Path_remove(newPath(path.native()));
       return outcome(presence, path);
     }},
    {"Path.rename", &Outcomes::rename, rename},
    {"FilePath.touch", &Outcomes::touch,
     [](const fs::path& path, const std::string&) {
       return touched(path, quen_io_FilePath_touch);
     }},
    {"Path.touch", &Outcomes::touch,
     [](const fs::path& path, const std::string&) { return touched(path, quen_io_Path_touch); }},
    {"FolderPath._mkdirNative", &Outcomes::makeFolder,
     [](const fs::path& path, const std::string&) {
       quen_io_FolderPath__mkdirNative(path.c_str());
       return outcome(entryAt, path);
     }},
    {"FolderPath._mkdirsNative", &Outcomes::makeFolders,
     [](const fs::path& path, const std::string&) {
       quen_io_FolderPath__mkdirsNative(path.c_str());
       return outcome(entryAt, path);
     }},
    {"FolderPath._removeAllNative", &Outcomes::removeAll,
     [](const fs::path& path, const std::string&) {
       quen_io_FolderPath__removeAllNative(path.c_str());
       return outcome(presence, path);
     }},
    {"FolderPath._listNamesNative", &Outcomes::list, list},
};

}  // namespace

Outcomes unreachable() {
  return {.entry = "nothing",
          .text = "IOException: Cannot open file",
          .prefix = "IOException: Cannot open file",
          .bytes = "IOException: Cannot open file",
          .truncate = "IOException: Cannot open file for writing",
          .replace = "IOException: Cannot open file for writing",
          .append = "IOException: Cannot open file for writing",
          .publish = "IOException: Cannot create temporary document index",
          .remove = "IOException: Cannot remove path",
          .rename = "IOException: Cannot rename path",
          .touch = "IOException: Cannot access path",
          .makeFolder = "IOException: Cannot create directory",
          .makeFolders = "IOException: Cannot create directories",
          .removeAll = "IOException: Cannot remove directory recursively",
          .list = "IOException: Cannot enumerate directory"};
}

Outcomes unchangeable() {
  Outcomes outcomes = unreachable();
  outcomes.entry = "file of 3 bytes";
  outcomes.text = outcomes.prefix = outcomes.bytes = "old";
  outcomes.touch = "IOException: Cannot update file timestamp";
  outcomes.makeFolder = outcomes.makeFolders = "IOException: A non-directory path already exists";
  return outcomes;
}

bool Operation::onlyLooks() const {
  return group == &Outcomes::entry || group == &Outcomes::text || group == &Outcomes::prefix ||
         group == &Outcomes::bytes || group == &Outcomes::list;
}

bool Operation::writesText() const {
  return group == &Outcomes::replace || group == &Outcomes::append;
}

std::span<const Operation> everyOperation() { return kOperations; }

std::string tree(const fs::path& folder) {
  std::vector<std::string> lines;
  std::error_code ignored;
  for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end;
       entry.increment(ignored)) {
    const fs::file_status status = entry->symlink_status(ignored);
    std::string line =
        entry->path().native() + " of kind " + std::to_string(static_cast<int>(status.type()));
    if (fs::is_symlink(status)) line += " to " + fs::read_symlink(entry->path(), ignored).native();
    if (fs::is_regular_file(status)) {
      line +=
          " and size " + std::to_string(entry->file_size(ignored)) + ": " + startOf(entry->path());
    }
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  std::string joined;
  for (const std::string& line : lines) joined += line + '\n';
  return joined;
}

}  // namespace quen::tests
