// Detects deadlocks of mutexes at the moment when they arise. A program that links
// lock_graph.cpp replaces pthread_mutex_lock and pthread_mutex_unlock, for std::mutex in the module
// too, and records which thread owns and which waits for which mutex.
#pragma once

namespace quen::tests {

// The exit status of a process that was about to deadlock.
inline constexpr int kDeadlock = 42;

// From now on, a thread that would complete a cycle of waiting threads prints "deadlock of N
// threads" to standard error and ends the process with status kDeadlock.
void endAtDeadlock();

}  // namespace quen::tests
