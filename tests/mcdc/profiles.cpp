// Writes the profile of a coverage build, in place of clang's profile runtime (compiler-rt). Linked
// into every program and library of that build (tests/mcdc/run).
//
// The runtime loses what happens while static objects are destroyed, as it writes before them; what
// a forked child did that ends with _exit; and what a child without privileges did, since the file
// of its parent is not its own. So each process and each image (program or library) writes a file
// of its own, as late as it can, into the folder QUEN_IO_PROFILES.

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>

extern "C" {

// Defined here, so that the runtime does not register its own writing at exit.
[[gnu::visibility("hidden")]] int __llvm_profile_runtime = 0;
void __llvm_profile_set_filename(const char* name);
int __llvm_profile_write_file();
}

namespace {

using Function = void (*)();

// A child may have lowered its limits to test what happens then.
void raiseLimit(__rlimit_resource resource) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(resource, &limit);
}

// Writes the profile of this image. The name has the time, since process numbers are used again. A
// child with another root does not see the folder, which the runtime would create there.
void writeProfile() {
  const char* const folder = std::getenv("QUEN_IO_PROFILES");
  if (folder == nullptr || access(folder, W_OK) != 0) return;
  raiseLimit(RLIMIT_FSIZE);
  raiseLimit(RLIMIT_NOFILE);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::array<char, 4096> name{};
  std::snprintf(name.data(), name.size(), "%s/%d-%lld-%lld-%p.profraw", folder, getpid(),
                static_cast<long long>(now.tv_sec), static_cast<long long>(now.tv_nsec),
                reinterpret_cast<void*>(&writeProfile));
  __llvm_profile_set_filename(name.data());
  __llvm_profile_write_file();
}

// Of all images of the process. Used in the program only, which alone exports quen_io_before__exit.
std::array<Function, 32> gBeforeExit{};
std::size_t gCount = 0;

[[noreturn]] void writeAllAndExit(int status) {
  for (std::size_t i = 0; i < gCount; ++i) gBeforeExit[i]();
  syscall(SYS_exit_group, status);
  std::abort();  // not reached
}

// Before the other constructors of the image: exit runs first what was registered last.
[[gnu::constructor(101)]] void registerProfile() {
  std::atexit(writeProfile);
  using Register = void(Function);
  if (void* found = dlsym(RTLD_DEFAULT, "quen_io_before__exit"); found != nullptr) {
    reinterpret_cast<Register*>(found)(writeProfile);
  }
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] void quen_io_before__exit(Function write) {
  if (gCount < gBeforeExit.size()) gBeforeExit[gCount++] = write;
}

// Preempt the definitions of the C library.
[[gnu::visibility("default")]] void _exit(int status) { writeAllAndExit(status); }
[[gnu::visibility("default")]] void _Exit(int status) noexcept { writeAllAndExit(status); }
}
