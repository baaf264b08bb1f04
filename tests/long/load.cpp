// A mixed load of path operations and all entry points that access the disk, for the given time:
//
//   quen_io_load SECONDS
//
// Prints a CSV line per second: second, calls in that second, resident KiB, open descriptors, live
// objects. Exits 1 after an unexpected exception, or if memory or descriptors grew.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;
using namespace quen::small;

namespace {

constexpr int kThreads = 2;

// Growth after a quarter of the time, when caches are filled, that counts as a leak.
constexpr std::int64_t kMostGrownKib = 8 * 1024;

struct Sample {
  std::int64_t calls;
  std::int64_t residentKib;
  std::int64_t descriptors;
};

std::atomic<bool> gStopped{false};
std::atomic<std::int64_t> gCalls{0};
std::atomic<std::int64_t> gUnexpected{0};

void expectRaised(bool expected) {
  ++gCalls;
  if (takeException().has_value() != expected) ++gUnexpected;
}

// Each kind of entry point once, with success and with failure.
void round(const fs::path& folder, int number) {
  const Scope scope;
  const std::string file = folder / "file";
  const std::string missing = folder / "missing" / "file";
  const std::string text(static_cast<std::size_t>(number % 20'000), 'x');

  quen_io_FileWriter__writePath(file.c_str(), text.c_str());
  expectRaised(false);
  quen_io_FileOutputStream__appendTextPath(file.c_str(), "\xF0\x9F\x98\x80");
  expectRaised(false);
  quen_io_FileReader__readAllTextPath(file.c_str());
  expectRaised(false);
  quen_io_FileReader__readAllTextPath(missing.c_str());
  expectRaised(true);
  quen_io_FileReader__readPrefixPath(file.c_str(), 100);
  expectRaised(false);
  void* bytes = newByteArray(std::size_t{1000});
  quen_io_FileInputStream__readBytesPath(file.c_str(), 10, bytes, 1000);
  expectRaised(false);
  quen_io_Files__writeBytesWithPrefixPath(file.c_str(), "\xFF", bytes);
  expectRaised(false);
  quen_io_FileReader__readAllTextPath(file.c_str());
  expectRaised(true);
  quen_io_toml_TOML__readStrictPath(file.c_str());
  expectRaised(true);

  const std::int64_t handle = quen_io_FileWriter__openPath(file.c_str(), number % 2);
  for (int i = 0; i < 20; ++i) quen_io_FileWriter__writeHandle(handle, "a line of a log\n");
  quen_io_FileWriter__flushHandle(handle);
  quen_io_FileWriter__closeHandle(handle);
  expectRaised(false);
  quen_io_FileWriter__writeHandle(handle, "too late");
  expectRaised(true);

  quen_data_internal_DocumentIndexStore__writeAtomic((folder / "index").c_str(), text.c_str());
  expectRaised(false);
  quen_io_FolderPath__mkdirsNative((folder / "a/b/c").c_str());
  expectRaised(false);
  quen_io_FilePath_touch(newPath((folder / "a/b/c/touched").native()));
  expectRaised(false);
  quen_io_FolderPath__listNamesNative(folder.c_str());
  expectRaised(false);
  void* path = newPath((folder / "a/../a/./b").native());
  quen_io_Path_normalize(path);
  quen_io_Path_toAbsolute(path);
  quen_io_Path_parent(path);
  quen_io_Path_resolve(path, newPath("../x"));
  quen_io_Path_relativize(path, newPath(folder.native()));
  quen_io_Path_name(path);
  quen_io_Path__exists(path);
  quen_io_Path__lastModified(path);
  expectRaised(false);
  quen_io_FolderPath__removeAllNative((folder / "a").c_str());
  expectRaised(false);
  quen_io_FolderPath__removeAllNative("/");
  expectRaised(true);
}

Sample sample(std::int64_t callsBefore) {
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;
  const auto descriptors =
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  return {gCalls - callsBefore, pages * sysconf(_SC_PAGESIZE) / 1024, descriptors};
}

}  // namespace

int main(int count, char** arguments) {
  const int seconds = count > 1 ? std::atoi(arguments[1]) : 600;
  std::string name = fs::temp_directory_path() / "quen-io-load-XXXXXX";
  const fs::path scratch = mkdtemp(name.data());
  std::vector<Sample> samples;
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      const fs::path folder = scratch / std::to_string(thread);
      fs::create_directory(folder);
      threads.emplace_back([folder] {
        for (int number = 0; !gStopped; ++number) round(folder, number);
      });
    }
    std::cout << "second,calls,resident KiB,descriptors,objects\n";
    std::int64_t calls = 0;
    for (int second = 1; second <= seconds; ++second) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      samples.push_back(sample(calls));
      calls += samples.back().calls;
      std::cout << second << ',' << samples.back().calls << ',' << samples.back().residentKib << ','
                << samples.back().descriptors << ',' << liveObjects() << std::endl;
    }
    gStopped = true;
  }
  fs::remove_all(scratch);

  const Sample& early = samples.at(samples.size() / 4);
  const std::int64_t grown = samples.back().residentKib - early.residentKib;
  std::cerr << gCalls << " calls, " << gUnexpected << " with an unexpected end, " << grown
            << " KiB grown since a quarter of the time, " << liveObjects() << " objects left\n";
  return gUnexpected == 0 && grown < kMostGrownKib && liveObjects() == 0 ? 0 : 1;
}
