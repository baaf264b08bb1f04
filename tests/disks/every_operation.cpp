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

// The raised exception, beside which the result has to be neutral, or else the result.
std::string outcome(const std::string& result) {
  const std::optional<Exception> exception = takeException();
  if (!exception) return result;
  EXPECT_EQ(result, "") << "a result beside the exception";
  return exception->className + ": " + exception->message;
}

// The raised exception, or else the state on disk, for operations that return nothing.
std::string outcome(std::string (*stateOnDisk)(const fs::path&), const fs::path& path) {
  const std::string raised = outcome("");
  return raised.empty() ? stateOnDisk(path) : raised;
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

// The answers of all queries, which have to agree with each other.
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
  EXPECT_EQ(stringBytes(quen_io_Path__pathKindPath(path.c_str())), regular  ? "file"
                                                                   : folder ? "directory"
                                                                            : "unknown");
  return (quen_io_Path__isSymlink(self) ? "link to " : "") + kind;
}

std::string readBytes(const fs::path& path, const std::string&) {
  void* destination = newByteArray(kReadAtMost);
  const std::int64_t count =
      quen_io_FileInputStream__readBytesPath(path.c_str(), 0, destination, kReadAtMost);
  const std::vector<std::uint8_t> bytes = byteArrayContents(destination);
  return outcome({bytes.begin(), bytes.begin() + count});
}

std::string writeThroughHandle(const fs::path& path, const std::string& text, bool append) {
  const std::int64_t handle = quen_io_FileWriter__openPath(path.c_str(), append ? 1 : 0);
  if (handle == 0) return outcome("");
  quen_io_FileWriter__writeHandle(handle, text.c_str());
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  return outcome(startOf, path);
}

// The receiver has to name the new place exactly when the entry was renamed.
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

// The forms of operations that several entry points share.

template <void* (*kRead)(const char*)>
std::string read(const fs::path& path, const std::string&) {
  return outcome(stringBytes(kRead(path.c_str())));
}

template <bool (*kTruncate)(const char*)>
std::string truncate(const fs::path& path, const std::string&) {
  const bool truncated = kTruncate(path.c_str());
  return outcome(truncated ? startOf(path) : "");
}

template <void (*kWrite)(const char*, const char*)>
std::string writeText(const fs::path& path, const std::string& text) {
  kWrite(path.c_str(), text.c_str());
  return outcome(startOf, path);
}

template <void (*kWrite)(const char*, void*)>
std::string writeBytes(const fs::path& path, const std::string& text) {
  kWrite(path.c_str(), byteArray(text));
  return outcome(startOf, path);
}

template <void (*kChange)(void*), auto kStateOnDisk>
std::string change(const fs::path& path, const std::string&) {
  kChange(newPath(path.native()));
  return outcome(kStateOnDisk, path);
}

template <void (*kChange)(const char*), auto kStateOnDisk>
std::string changeAt(const fs::path& path, const std::string&) {
  kChange(path.c_str());
  return outcome(kStateOnDisk, path);
}

const Operation kOperations[] = {
    {"queries", &Outcomes::entry,
     [](const fs::path& path, const std::string&) { return outcome(entryAt(path)); }},

    {"FileReader._readAllTextPath", &Outcomes::text, read<quen_io_FileReader__readAllTextPath>},
    {"FileInputStream._readTextFromOffsetPath", &Outcomes::text,
     [](const fs::path& path, const std::string&) {
       return outcome(
           stringBytes(quen_io_FileInputStream__readTextFromOffsetPath(path.c_str(), 0)));
     }},
    {"TOML._readStrictPath", &Outcomes::text, read<quen_io_toml_TOML__readStrictPath>},
    {"FileReader._readPrefixPath", &Outcomes::prefix,
     [](const fs::path& path, const std::string&) {
       return outcome(stringBytes(quen_io_FileReader__readPrefixPath(path.c_str(), kReadAtMost)));
     }},
    {"FileInputStream._readBytesPath", &Outcomes::bytes, readBytes},

    {"FileWriter._truncatePath", &Outcomes::truncate, truncate<quen_io_FileWriter__truncatePath>},
    {"FileOutputStream._truncatePath", &Outcomes::truncate,
     truncate<quen_io_FileOutputStream__truncatePath>},
    {"FileWriter._writePath", &Outcomes::replace, writeText<quen_io_FileWriter__writePath>},
    {"Files._writeBytesPath", &Outcomes::replace, writeBytes<quen_io_Files__writeBytesPath>},
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
    {"FileWriter._appendPath", &Outcomes::append, writeText<quen_io_FileWriter__appendPath>},
    {"FileOutputStream._appendTextPath", &Outcomes::append,
     writeText<quen_io_FileOutputStream__appendTextPath>},
    {"FileOutputStream._appendBytesPath", &Outcomes::append,
     writeBytes<quen_io_FileOutputStream__appendBytesPath>},
    {"a handle to append", &Outcomes::append,
     [](const fs::path& path, const std::string& text) {
       return writeThroughHandle(path, text, true);
     }},
    {"DocumentIndexStore._writeAtomic", &Outcomes::publish,
     writeText<quen_data_internal_DocumentIndexStore__writeAtomic>},

    {"Path.remove", &Outcomes::remove, change<quen_io_Path_remove, presence>},
    {"Path.rename", &Outcomes::rename, rename},
    {"FilePath.touch", &Outcomes::touch, change<quen_io_FilePath_touch, entryAt>},
    {"Path.touch", &Outcomes::touch, change<quen_io_Path_touch, entryAt>},
    {"FolderPath._mkdirNative", &Outcomes::makeFolder,
     changeAt<quen_io_FolderPath__mkdirNative, entryAt>},
    {"FolderPath._mkdirsNative", &Outcomes::makeFolders,
     changeAt<quen_io_FolderPath__mkdirsNative, entryAt>},
    {"FolderPath._removeAllNative", &Outcomes::removeAll,
     changeAt<quen_io_FolderPath__removeAllNative, presence>},
    {"FolderPath._listNamesNative", &Outcomes::list, list},
};

}  // namespace

Outcomes unreachable() {
  Outcomes outcomes;
  outcomes.entry = "nothing";
  outcomes.text = outcomes.prefix = outcomes.bytes = "IOException: Cannot open file";
  outcomes.truncate = outcomes.replace = outcomes.append =
      "IOException: Cannot open file for writing";
  outcomes.publish = "IOException: Cannot create temporary document index";
  outcomes.remove = "IOException: Cannot remove path";
  outcomes.rename = "IOException: Cannot rename path";
  outcomes.touch = "IOException: Cannot access path";
  outcomes.makeFolder = "IOException: Cannot create directory";
  outcomes.makeFolders = "IOException: Cannot create directories";
  outcomes.removeAll = "IOException: Cannot remove directory recursively";
  outcomes.list = "IOException: Cannot enumerate directory";
  return outcomes;
}

Outcomes unchangeable() {
  Outcomes outcomes = unreachable();
  outcomes.entry = "file of 3 bytes";
  outcomes.text = outcomes.prefix = outcomes.bytes = "old";
  outcomes.touch = "IOException: Cannot update file timestamp";
  outcomes.makeFolder = outcomes.makeFolders = "IOException: A non-directory path already exists";
  return outcomes;
}

Outcomes ordinary() {
  Outcomes outcomes = unchangeable();
  outcomes.truncate = "";
  outcomes.replace = outcomes.publish = "new";
  outcomes.append = "oldnew";
  outcomes.remove = outcomes.removeAll = "gone";
  outcomes.rename = "moved";
  outcomes.touch = outcomes.entry;
  return outcomes;
}

bool Operation::isReadOnly() const {
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
