// The pending exception of a thread.

#include <pthread.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "quen/io/runtime_parts.h"
#include "runtime/parts/operations.h"

namespace quen::parts {

namespace {

// A thread_local object with a destructor would have to be registered at its first use on a thread,
// and glibc ends the process if there is no memory for that (__cxa_thread_atexit_impl). This one
// has none; a thread that ends with a pending exception has it destroyed by a key (pthread_key_t).
class PendingException {
 public:
  bool isPending() const { return held_; }

  // Fails only if no exception has been pending on this thread yet. At exit, the key may be gone.
  void set(Exception exception) {
    if (pthread_setspecific(key(), this) == ENOMEM) throw std::bad_alloc();
    std::construct_at(place(), std::move(exception));
    held_ = true;
  }

  std::optional<Exception> take() {
    if (!held_) return std::nullopt;
    std::optional<Exception> taken(std::move(*place()));
    clear();
    pthread_setspecific(key(), nullptr);  // which needs no memory
    return taken;
  }

 private:
  // Deleted when a library that contains it is unloaded.
  struct Key {
    Key() {
      const auto atEndOfThread = [](void* pending) {
        static_cast<PendingException*>(pending)->clear();
      };
      if (pthread_key_create(&number, atEndOfThread) != 0) throw std::bad_alloc();
    }
    ~Key() { pthread_key_delete(number); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    pthread_key_t number{};
  };

  static pthread_key_t key() {
    static const Key made;
    return made.number;
  }

  void clear() {
    if (held_) std::destroy_at(place());
    held_ = false;
  }

  Exception* place() {
    return std::launder(static_cast<Exception*>(static_cast<void*>(bytes_.data())));
  }

  alignas(Exception) std::array<std::byte, sizeof(Exception)> bytes_;
  bool held_;
};

constinit thread_local PendingException tPending{};

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

void raise(const char* exceptionClass, const char* message) {
  if (!tPending.isPending()) tPending.set({textOf(exceptionClass), textOf(message)});
}

int hasPendingError() { return tPending.isPending() ? 1 : 0; }

std::optional<Exception> takeException() { return tPending.take(); }

PendingExceptionScope::PendingExceptionScope() : outer_(takeException()) {}

PendingExceptionScope::~PendingExceptionScope() {
  takeException();
  if (outer_) tPending.set(*std::move(outer_));
}

}  // namespace quen::parts
