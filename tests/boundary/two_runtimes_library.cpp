// The host of the example as a shared object, for two_runtimes_test.cpp. The example is a program
// of its own, so its main gets another name here.

int runExample();
#define main runExample
#include "examples/toy_host.cpp"
#undef main

extern "C" {

std::int64_t openFile(const char* path);
bool raises(std::int64_t handle);
bool isPending();

std::int64_t openFile(const char* path) { return quen_io_FileWriter__openPath(path, 0); }

// Whether a write through the handle raises. The exception stays pending.
bool raises(std::int64_t handle) {
  quen_io_FileWriter__writeHandle(handle, "text");
  return isPending();
}

bool isPending() { return Quen_hasPendingError() != 0; }

}  // extern "C"
