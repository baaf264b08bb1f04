// One ordinary call of every entry point, for tests of properties that all of them have.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>
#include <variant>
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

// What an entry point returned.
using Returned = std::variant<std::monostate, bool, std::int64_t, void*>;

// In words, with the contents of an object; names of a list are sorted.
std::string describe(const Returned& returned);

struct EntryPointCall {
  template <class Call>
  EntryPointCall(const char* itsName, const Call& call)
      : name(itsName), make([call](const Ground& ground) -> Returned {
          if constexpr (std::is_void_v<std::invoke_result_t<Call, const Ground&>>) {
            call(ground);
            return {};
          } else {
            return call(ground);
          }
        }) {}

  const char* name;
  std::function<Returned(const Ground& ground)> make;
};

const std::vector<EntryPointCall>& everyEntryPoint();

}  // namespace quen::tests
