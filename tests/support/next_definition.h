// For functions of a test program that preempt those of the C library (symbol interposition).
#pragma once

#include <dlfcn.h>

#include <atomic>

namespace quen::tests {

// The C library's definition of the function with this name.
template <class Function>
Function* nextDefinition(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The same, looked up once, and without the guard of a local variable: libc++ locks a mutex for it,
// by functions that a test program may define.
template <class Function>
class NextDefinition {
 public:
  explicit constexpr NextDefinition(const char* name) : name_(name) {}

  Function* get() {
    if (found_ == nullptr) found_ = nextDefinition<Function>(name_);
    return found_;
  }

 private:
  const char* name_;
  std::atomic<Function*> found_ = nullptr;
};

}  // namespace quen::tests
