// One ordinary call of every entry point, for tests of properties that all of them have.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/scratch_folder.h"

namespace quen::tests {

// The objects and files that the calls use, created before the call.
struct Ground {
  explicit Ground(const ScratchFolder& scratch);

  std::string file, folder, missing;
  void *filePath, *folderPath, *missingPath;  // path objects of the same
  void *bytes, *destination;                  // a Byte[] to write, and one to read into
  std::int64_t handle;                        // an open writer

  // Closes the writer, unless the call did, and forgets what was raised.
  ~Ground();
  Ground(const Ground&) = delete;
  Ground& operator=(const Ground&) = delete;
};

struct EntryPointCall {
  const char* name;
  std::function<void(const Ground& ground)> make;
};

const std::vector<EntryPointCall>& everyEntryPoint();

}  // namespace quen::tests
