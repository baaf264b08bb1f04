// Handlers that run at every fork (pthread_atfork(3)). Private to the module.
#pragma once

namespace quen::io {

// Registers `before`, which runs on the forking thread, and `inParent` and `inChild`, which run
// after the fork on the same thread of each process.
void aroundForks(void (*before)(), void (*inParent)(), void (*inChild)());

}  // namespace quen::io
