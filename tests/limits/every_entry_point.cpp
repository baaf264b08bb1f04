#include "tests/limits/every_entry_point.h"

#include <algorithm>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

using namespace quen::small;

namespace quen::tests {

namespace {

// Longer than any buffer and than std::string's small-string optimization.
const std::string kText(20'000, 't');

}  // namespace

Ground::Ground(const ScratchFolder& scratch)
    : file(scratch.file("file", kText)),
      folder(scratch.folder("folder")),
      missing(scratch / "missing"),
      filePath(newPath(file)),
      folderPath(newFolderPath(folder)),
      missingPath(newPath(missing)),
      bytes(newByteArray(std::vector<std::uint8_t>(20'000, 'b'))),
      destination(newByteArray(std::size_t{10'000})),
      handle(quen_io_FileWriter__openPath(scratch.file("written").c_str(), 0)) {
  scratch.file("folder/a");
  scratch.file("folder/b");
  std::filesystem::remove_all(missing);
}

Ground::~Ground() {
  quen_io_FileWriter__closeHandle(handle);
  takeException();
}

std::string describe(const Returned& returned) {
  if (const auto* truth = std::get_if<bool>(&returned)) return *truth ? "true" : "false";
  if (const auto* number = std::get_if<std::int64_t>(&returned)) return std::to_string(*number);
  void* const* object = std::get_if<void*>(&returned);
  if (object == nullptr) return "nothing";

  std::string words = className(*object) + ": " + stringBytes(*object);
  std::vector<std::string> elements = listStrings(*object);
  std::ranges::sort(elements);
  for (const std::string& element : elements) words += element + ' ';
  if (const auto text = pathText(*object)) {
    words += *text + (hasParentTraversal(*object) ? " (parent traversal)" : "");
  }
  return words;
}

const std::vector<EntryPointCall>& everyEntryPoint() {
  static const std::vector<EntryPointCall> calls{
      {"__quen_propget_quen_io_Path_cwd",
       [](const Ground&) { return __quen_propget_quen_io_Path_cwd(); }},
      {"quen_io_Path__cwdPath", [](const Ground&) { return quen_io_Path__cwdPath(); }},
      {"quen_io_Path_normalize",
       [](const Ground& g) { return quen_io_Path_normalize(g.filePath); }},
      {"quen_io_Path__normalizePath",
       [](const Ground& g) { return quen_io_Path__normalizePath(g.file.c_str()); }},
      {"quen_io_Path_toAbsolute",
       [](const Ground& g) { return quen_io_Path_toAbsolute(g.filePath); }},
      {"quen_io_Path__absolutePath",
       [](const Ground& g) { return quen_io_Path__absolutePath(g.file.c_str()); }},
      {"quen_io_Path_parent", [](const Ground& g) { return quen_io_Path_parent(g.filePath); }},
      {"quen_io_Path__parentPath",
       [](const Ground& g) { return quen_io_Path__parentPath(g.file.c_str()); }},
      {"quen_io_Path__isAbsolute",
       [](const Ground& g) { return quen_io_Path__isAbsolute(g.filePath); }},
      {"__quen_propget_quen_io_Path_isAbsolute",
       [](const Ground& g) { return __quen_propget_quen_io_Path_isAbsolute(g.filePath); }},
      {"quen_io_Path__isNormalized",
       [](const Ground& g) { return quen_io_Path__isNormalized(g.filePath); }},
      {"__quen_propget_quen_io_Path_isNormalized",
       [](const Ground& g) { return __quen_propget_quen_io_Path_isNormalized(g.filePath); }},
      {"quen_io_Path_relativize",
       [](const Ground& g) { return quen_io_Path_relativize(g.filePath, g.folderPath); }},
      {"quen_io_Path__relativizePath",
       [](const Ground& g) {
         return quen_io_Path__relativizePath(g.file.c_str(), g.folder.c_str());
       }},
      {"quen_io_Path_resolve",
       [](const Ground& g) { return quen_io_Path_resolve(g.filePath, g.folderPath); }},
      {"quen_io_Path_resolve__dup2",
       [](const Ground& g) { return quen_io_Path_resolve__dup2(g.filePath, g.folderPath); }},
      {"quen_io_Path_resolve__dup3",
       [](const Ground& g) { return quen_io_Path_resolve__dup3(g.filePath, g.folderPath); }},
      {"quen_io_Path__resolvePath",
       [](const Ground& g) {
         return quen_io_Path__resolvePath(g.folder.c_str(), g.folder.c_str());
       }},
      {"quen_io_Path_name", [](const Ground& g) { return quen_io_Path_name(g.filePath); }},
      {"__quen_propget_quen_io_Path_name",
       [](const Ground& g) { return __quen_propget_quen_io_Path_name(g.filePath); }},
      {"quen_io_Path__pathName",
       [](const Ground& g) { return quen_io_Path__pathName(g.file.c_str()); }},
      {"quen_io_Path_extension",
       [](const Ground& g) { return quen_io_Path_extension(g.filePath); }},
      {"__quen_propget_quen_io_Path_extension",
       [](const Ground& g) { return __quen_propget_quen_io_Path_extension(g.filePath); }},
      {"quen_io_Path__pathExtension",
       [](const Ground& g) { return quen_io_Path__pathExtension(g.file.c_str()); }},
      {"quen_io_Path__pathKindPath",
       [](const Ground& g) { return quen_io_Path__pathKindPath(g.folder.c_str()); }},
      {"quen_io_Path__rootStringsNative",
       [](const Ground&) { return quen_io_Path__rootStringsNative(); }},
      {"quen_io_FileInputStream__existsPath",
       [](const Ground& g) { return quen_io_FileInputStream__existsPath(g.file.c_str()); }},
      {"quen_io_FileInputStream__isRegularPath",
       [](const Ground& g) { return quen_io_FileInputStream__isRegularPath(g.file.c_str()); }},
      {"quen_io_FileInputStream__sizePath",
       [](const Ground& g) { return quen_io_FileInputStream__sizePath(g.file.c_str()); }},
      {"quen_io_Path__exists", [](const Ground& g) { return quen_io_Path__exists(g.filePath); }},
      {"quen_io_Path__isRegular",
       [](const Ground& g) { return quen_io_Path__isRegular(g.filePath); }},
      {"quen_io_Path__isDirectory",
       [](const Ground& g) { return quen_io_Path__isDirectory(g.filePath); }},
      {"quen_io_Path__isSymlink",
       [](const Ground& g) { return quen_io_Path__isSymlink(g.filePath); }},
      {"quen_io_Path__size", [](const Ground& g) { return quen_io_Path__size(g.filePath); }},
      {"quen_io_Path__lastModified",
       [](const Ground& g) { return quen_io_Path__lastModified(g.filePath); }},
      {"__quen_propget_quen_io_Path_exists",
       [](const Ground& g) { return __quen_propget_quen_io_Path_exists(g.filePath); }},
      {"__quen_propget_quen_io_Path_isRegular",
       [](const Ground& g) { return __quen_propget_quen_io_Path_isRegular(g.filePath); }},
      {"__quen_propget_quen_io_Path_isDirectory",
       [](const Ground& g) { return __quen_propget_quen_io_Path_isDirectory(g.filePath); }},
      {"__quen_propget_quen_io_Path_isSymlink",
       [](const Ground& g) { return __quen_propget_quen_io_Path_isSymlink(g.filePath); }},
      {"__quen_propget_quen_io_Path_size",
       [](const Ground& g) { return __quen_propget_quen_io_Path_size(g.filePath); }},
      {"__quen_propget_quen_io_Path_lastModified",
       [](const Ground& g) { return __quen_propget_quen_io_Path_lastModified(g.filePath); }},
      {"quen_io_Path_remove", [](const Ground& g) { return quen_io_Path_remove(g.filePath); }},
      {"quen_io_Path_rename",
       [](const Ground& g) { return quen_io_Path_rename(g.filePath, "renamed"); }},
      {"quen_io_FilePath_touch",
       [](const Ground& g) { return quen_io_FilePath_touch(g.filePath); }},
      {"quen_io_Path_touch", [](const Ground& g) { return quen_io_Path_touch(g.missingPath); }},
      {"quen_io_FolderPath__mkdirNative",
       [](const Ground& g) { return quen_io_FolderPath__mkdirNative(g.missing.c_str()); }},
      {"quen_io_FolderPath__mkdirsNative",
       [](const Ground& g) { return quen_io_FolderPath__mkdirsNative(g.missing.c_str()); }},
      {"quen_io_FolderPath__removeAllNative",
       [](const Ground& g) { return quen_io_FolderPath__removeAllNative(g.folder.c_str()); }},
      {"quen_io_FolderPath__listNamesNative",
       [](const Ground& g) { return quen_io_FolderPath__listNamesNative(g.folder.c_str()); }},
      {"quen_io_FileReader__readAllTextPath",
       [](const Ground& g) { return quen_io_FileReader__readAllTextPath(g.file.c_str()); }},
      {"quen_io_FileInputStream__readTextFromOffsetPath",
       [](const Ground& g) {
         return quen_io_FileInputStream__readTextFromOffsetPath(g.file.c_str(), 1);
       }},
      {"quen_io_FileReader__readPrefixPath",
       [](const Ground& g) { return quen_io_FileReader__readPrefixPath(g.file.c_str(), 10'000); }},
      {"quen_io_FileInputStream__readBytesPath",
       [](const Ground& g) {
         return quen_io_FileInputStream__readBytesPath(g.file.c_str(), 1, g.destination, 10'000);
       }},
      {"quen_io_FileWriter__truncatePath",
       [](const Ground& g) { return quen_io_FileWriter__truncatePath(g.file.c_str()); }},
      {"quen_io_FileOutputStream__truncatePath",
       [](const Ground& g) { return quen_io_FileOutputStream__truncatePath(g.file.c_str()); }},
      {"quen_io_FileWriter__appendPath",
       [](const Ground& g) {
         return quen_io_FileWriter__appendPath(g.file.c_str(), kText.c_str());
       }},
      {"quen_io_FileOutputStream__appendTextPath",
       [](const Ground& g) {
         return quen_io_FileOutputStream__appendTextPath(g.file.c_str(), kText.c_str());
       }},
      {"quen_io_FileWriter__writePath",
       [](const Ground& g) {
         return quen_io_FileWriter__writePath(g.file.c_str(), kText.c_str());
       }},
      {"quen_io_Files__writeBytesPath",
       [](const Ground& g) { return quen_io_Files__writeBytesPath(g.file.c_str(), g.bytes); }},
      {"quen_io_Files__writeBytesWithPrefixPath",
       [](const Ground& g) {
         return quen_io_Files__writeBytesWithPrefixPath(g.file.c_str(), "prefix", g.bytes);
       }},
      {"quen_io_FileOutputStream__appendBytesPath",
       [](const Ground& g) {
         return quen_io_FileOutputStream__appendBytesPath(g.file.c_str(), g.bytes);
       }},
      {"quen_io_FileWriter__openPath",
       [](const Ground& g) {
         return quen_io_FileWriter__closeHandle(quen_io_FileWriter__openPath(g.file.c_str(), 1));
       }},
      {"quen_io_FileWriter__writeHandle",
       [](const Ground& g) { return quen_io_FileWriter__writeHandle(g.handle, kText.c_str()); }},
      {"quen_io_FileWriter__flushHandle",
       [](const Ground& g) { return quen_io_FileWriter__flushHandle(g.handle); }},
      {"quen_io_FileWriter__closeHandle",
       [](const Ground& g) { return quen_io_FileWriter__closeHandle(g.handle); }},
      {"quen_io_toml_TOML__readStrictPath",
       [](const Ground& g) { return quen_io_toml_TOML__readStrictPath(g.file.c_str()); }},
      {"quen_data_internal_DocumentIndexStore__writeAtomic",
       [](const Ground& g) {
         return quen_data_internal_DocumentIndexStore__writeAtomic(g.file.c_str(), kText.c_str());
       }},
      {"Quen_isUnsafeRecursiveDeletePath",
       [](const Ground& g) { return Quen_isUnsafeRecursiveDeletePath(g.folder.c_str()); }},
  };
  return calls;
}

}  // namespace quen::tests
