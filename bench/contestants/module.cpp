// The module, through its entry points. Only its validator is asked directly: an entry point would
// show it together with reading a file.

#include "bench/contestants/entry_points.h"
#include "contents/utf8.h"
#include "quen/io/entry_points.h"

namespace {

bool validate(const std::string& text) {
  std::uint64_t errorOffset = 0;
  return quen::io::validateUtf8(text, errorOffset);
}

}  // namespace

int main() {
  return quen::bench::serve(quen::bench::workloadsOf({
      .validate = validate,
      .readAllText = quen_io_FileReader__readAllTextPath,
      .readPrefix = quen_io_FileReader__readPrefixPath,
      .readBytes = quen_io_FileInputStream__readBytesPath,
      .normalizePath = quen_io_Path__normalizePath,
      .normalize = quen_io_Path_normalize,
      .parentPath = quen_io_Path__parentPath,
      .resolvePath = quen_io_Path__resolvePath,
      .isNormalized = quen_io_Path__isNormalized,
      .pathName = quen_io_Path__pathName,
      .pathExtension = quen_io_Path__pathExtension,
      .openWriter = quen_io_FileWriter__openPath,
      .write = quen_io_FileWriter__writeHandle,
      .closeWriter = quen_io_FileWriter__closeHandle,
      .writeAtomic = quen_data_internal_DocumentIndexStore__writeAtomic,
      .listNames = quen_io_FolderPath__listNamesNative,
      .removeAll = quen_io_FolderPath__removeAllNative,
      .isUnsafe = Quen_isUnsafeRecursiveDeletePath,
  }));
}
