// A memory cgroup (cgroups(7), of either version) for one test: the kernel kills its processes when
// they need more memory than it allows.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace quen::tests {

class MemoryGroup {
 public:
  // Check missing() for success.
  explicit MemoryGroup(std::size_t bytes) {
    for (const Place& place : places()) {
      const std::string folder = place.folder + "/quen-io-test-" + std::to_string(getpid());
      if (place.isSecondVersion) write(place.folder + "/cgroup.subtree_control", "+memory");
      if (mkdir(folder.c_str(), 0700) != 0) continue;
      folder_ = folder;
      const std::string limit = std::to_string(bytes);
      if (place.isSecondVersion ? write(folder + "/memory.max", limit)
                                : write(folder + "/memory.limit_in_bytes", limit)) {
        // Not everywhere: without swap there is nothing to forbid.
        write(folder + "/memory.swap.max", "0");
        write(folder + "/memory.memsw.limit_in_bytes", limit);
        return;
      }
      remove();
    }
  }

  ~MemoryGroup() { remove(); }
  MemoryGroup(const MemoryGroup&) = delete;
  MemoryGroup& operator=(const MemoryGroup&) = delete;

  // Why there is none; empty if there is one.
  std::string missing() const {
    return folder_.empty() ? "no memory cgroup: needs root and a writable cgroup" : "";
  }

  // Moves this process into the group.
  bool enter() const { return write(folder_ + "/cgroup.procs", std::to_string(getpid())); }

 private:
  struct Place {
    std::string folder;
    bool isSecondVersion;
  };

  // Where cgroup file systems with the memory controller are mounted.
  static std::vector<Place> places() {
    std::vector<Place> found;
    std::ifstream mounts("/proc/self/mounts");
    for (std::string line; std::getline(mounts, line);) {
      std::istringstream words(line);
      std::string device;
      std::string folder;
      std::string kind;
      std::string options;
      words >> device >> folder >> kind >> options;
      const bool hasMemory = (',' + options + ',').find(",memory,") != std::string::npos;
      if (kind == "cgroup" && hasMemory) found.push_back({folder, false});
      if (kind == "cgroup2" && controllersOf(folder).find("memory") != std::string::npos) {
        found.push_back({folder, true});
      }
    }
    return found;
  }

  static std::string controllersOf(const std::string& folder) {
    std::ifstream file(folder + "/cgroup.controllers");
    std::string line;
    std::getline(file, line);
    return line;
  }

  static bool write(const std::string& file, const std::string& text) {
    std::ofstream stream(file);
    stream << text << std::flush;
    return stream.good();
  }

  void remove() {
    if (!folder_.empty()) rmdir(folder_.c_str());
    folder_.clear();
  }

  std::string folder_;
};

}  // namespace quen::tests
