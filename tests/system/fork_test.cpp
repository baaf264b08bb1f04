#include "system/fork.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>

#include "tests/support/next_definition.h"

using namespace quen::io;

namespace {

bool gMemoryIsExhausted = false;

void doNothing() {}

}  // namespace

// What pthread_atfork(3) calls in glibc. The definition in this program preempts the library's.
extern "C" [[gnu::visibility("default")]] int __register_atfork(void (*before)(),
                                                                void (*inParent)(),
                                                                void (*inChild)(), void* image);

int __register_atfork(void (*before)(), void (*inParent)(), void (*inChild)(), void* image) {
  static auto* const next =
      quen::tests::nextDefinition<decltype(__register_atfork)>("__register_atfork");
  return gMemoryIsExhausted ? ENOMEM : next(before, inParent, inChild, image);
}

namespace {

TEST(AroundForks, ThatCannotBeRegisteredThrows) {
  aroundForks(doNothing, doNothing, doNothing);
  gMemoryIsExhausted = true;
  EXPECT_THROW(aroundForks(doNothing, doNothing, doNothing), std::bad_alloc);
  gMemoryIsExhausted = false;
}

}  // namespace
