#include "system/fork.h"

#include <pthread.h>

#include <new>

namespace quen::io {

// pthread_atfork fails only with ENOMEM.
void aroundForks(void (*before)(), void (*inParent)(), void (*inChild)()) {
  if (pthread_atfork(before, inParent, inChild) != 0) throw std::bad_alloc();
}

}  // namespace quen::io
