// Two runtimes in one process: shared objects with quen::io_static have a module each, which calls
// the operations of its own runtime. Prints what failed and exits with 1.

#include <dlfcn.h>

#include <cstdint>
#include <iostream>
#include <string>

namespace {

bool holds(bool fact, const std::string& claim) {
  if (!fact) std::cerr << "not so: " << claim << '\n';
  return fact;
}

// A shared object made from two_runtimes_library.cpp.
class Library {
 public:
  explicit Library(const char* path) : library_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) std::cerr << dlerror() << '\n';
  }

  bool isLoaded() const { return library_ != nullptr; }
  std::int64_t openFile(const char* path) const {
    return function<std::int64_t(const char*)>("openFile")(path);
  }
  bool raises(std::int64_t handle) const { return function<bool(std::int64_t)>("raises")(handle); }
  bool isPending() const { return function<bool()>("isPending")(); }

 private:
  template <class Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(library_, name));
  }

  void* library_;
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const Library one(arguments[1]);
  const Library other(arguments[2]);
  if (!one.isLoaded() || !other.isLoaded()) return 1;

  bool all = true;
  all &= holds(one.openFile("/dev/null") == 1, "the first handle of the one is 1");
  all &= holds(one.openFile("/dev/null") == 2, "its second handle is 2");
  all &= holds(other.openFile("/dev/null") == 1, "the first handle of the other is 1, too");
  all &= holds(other.raises(2), "the other does not know the second handle");
  all &= holds(!one.isPending(), "the one has no exception");
  all &= holds(!one.raises(2), "and knows the handle");
  return all ? 0 : 1;
}
