// The call of an entry point that a thread is in, and the operations that the module calls
// meanwhile. Both look at what crosses the boundary, and report what breaks a contract.
#pragma once

#include <array>
#include <cstddef>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <type_traits>

#include "runtime/checked/report.h"
#include "runtime/checked/watched_text.h"
#include "runtime/forced_unwind.h"

namespace quen::checked {

// Calls the body, then `returned`; if an exception leaves the body, `threw` with the
// std::exception, or without an argument if it is none. std::bad_alloc may leave entry points and
// operations, and cancellation unwinds with an exception that may not be swallowed
// (pthread_cancel(3)).
template <class Body, class Returned, class Threw>
auto observed(Body body, Returned returned, Threw threw) {
  try {
    if constexpr (std::is_void_v<decltype(body())>) {
      body();
      returned();
    } else {
      auto result = body();
      returned();
      return result;
    }
  } catch (const ForcedUnwind&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    threw(exception);
    throw;
  } catch (...) {
    threw();
    throw;
  }
}

// A call of an entry point. It lives on the stack of the wrapper that the host called.
class Call {
 public:
  explicit Call(const char* entryPoint);
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // The innermost call of this thread; null outside of all entry points.
  static Call* current();

  void takesText(const char* parameter, const char* text);
  void takesObject(const char* parameter, void* object);

  // Calls the module's own entry point.
  template <class Result, class... Parameters, class... Arguments>
  Result run(Result (*module)(Parameters...), Arguments... arguments) {
    return guarded([&]() -> Result { return module(arguments...); });
  }

  // Watches a text until the entry point returns. `subject` is the parameter or the operation that
  // the text came from; the claim is reported of it when the text changes.
  void watch(const char* subject, const char* text, const char* claim);

  // A path object of the checks, with "_hasParentTraversal" set, in whose "_path" a String can be
  // read. Null when the host makes none.
  void* pathOfChecks();

 private:
  friend class Operation;

  struct Watched {
    const char* subject = nullptr;
    const char* claim = nullptr;
    WatchedText text;
  };

  template <class Body>
  auto guarded(Body body) {
    return observed(
        body, [this] { this->finish(); },
        [this](const auto&... what) { this->leavesWith(what...); });
  }

  void leavesWith(const std::exception& exception) const;
  void leavesWith() const;
  void expectNoRaiseAround() const;
  void expectRaisedPending();
  void expectTextsUnchanged();
  void finish();

  const char* const entryPoint_;
  Call* const outer_;
  const char* operation_ = nullptr;  // the one that runs
  bool pending_ = false;             // whether an exception was pending when last asked
  bool raised_ = false;              // whether the module raised since then
  bool foreignException_ = false;    // whether an exception of an operation was reported
  void* pathOfChecks_ = nullptr;

  // Texts beyond these are not watched; entry points take and borrow fewer.
  std::array<std::optional<Watched>, 6> watched_;
  std::size_t watchedCount_ = 0;
};

// A call of an operation by the module.
class Operation {
 public:
  explicit Operation(const char* name);
  ~Operation();
  Operation& operator=(Operation&&) = delete;  // neither copyable nor movable

  // Calls the host's operation, and looks at what it leaves behind.
  template <class Body>
  auto run(Body body) {
    return observed(
        body, [this] { this->returned(); }, [this](const auto&... what) { this->threw(what...); });
  }

  // Runs a check that calls operations which the module does not call itself. An exception ends the
  // check, since the module has to see what it would see without it.
  template <class Body>
  void check(Body body) {
    if (settings().passive || call_ == nullptr) return;
    try {
      body();
    } catch (const ForcedUnwind&) {
      throw;
    } catch (const std::exception&) {
      return;
    }
  }

  void report(const char* claim, const std::string& details = "") const;

  // Reports a claim about another operation that a check called.
  void reportOf(const char* operation, const char* claim, const std::string& details = "") const;

  // The call that the operation belongs to; null when its thread is in no entry point.
  Call* call() const { return call_; }

 private:
  void returned();
  void threw(const std::exception& exception);
  void threw();

  const char* const name_;
  Call* const call_;
  const char* const outer_;
};

}  // namespace quen::checked
