// For functions of a test program that preempt those of the C library (symbol interposition).
#pragma once

#include <dlfcn.h>

namespace quen::tests {

// The C library's definition of the function with this name.
template <class Function>
Function* nextDefinition(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace quen::tests
