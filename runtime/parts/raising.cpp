// Defines the symbols of the two operations about exceptions, which are replaced together: a host
// that defines only one of them gets an error of the linker.

#include "quen/io/operations.h"
#include "runtime/parts/operations.h"

void Quen_raise(const char* exceptionClass, const char* message) {
  quen::parts::raise(exceptionClass, message);
}

int Quen_hasPendingError() { return quen::parts::hasPendingError(); }
