// The pending exception of a thread.

#include <utility>

#include "quen/io/runtime_parts.h"
#include "runtime/parts/operations.h"

namespace quen::parts {

namespace {

std::optional<Exception>& pendingException() {
  thread_local std::optional<Exception> pending;
  return pending;
}

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

void raise(const char* exceptionClass, const char* message) {
  std::optional<Exception>& pending = pendingException();
  if (!pending) pending = Exception{textOf(exceptionClass), textOf(message)};
}

int hasPendingError() { return pendingException().has_value() ? 1 : 0; }

std::optional<Exception> takeException() { return std::exchange(pendingException(), std::nullopt); }

PendingExceptionScope::PendingExceptionScope() : outer_(takeException()) {}

PendingExceptionScope::~PendingExceptionScope() { pendingException() = std::move(outer_); }

}  // namespace quen::parts
