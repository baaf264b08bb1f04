#include "conformance/verdict.h"

#include <exception>

#include "conformance/waiting.h"
#include "runtime/forced_unwind.h"

namespace quen::conformance {

namespace {

// Only Quen_raise makes an exception pending, and each check takes what it raised.
void requireNonePending(const Adapter& adapter) {
  if (const auto pending = adapter.takeException()) {
    throw NotMet("left pending: " + pending->className + ' ' + shown(pending->message));
  }
}

// The verdict of a check that was left by an exception: what it raised is taken, so that the next
// requirement is not blamed.
Verdict left(const Adapter& adapter, Outcome outcome, const std::string& message) {
  adapter.takeException();
  return {outcome, message};
}

}  // namespace

// A forced unwind (pthread_exit) has to leave the handler.
Verdict check(const Requirement& requirement, const Adapter& adapter,
              std::chrono::milliseconds patience) {
  // Some time is left to answer before the process is killed.
  setDeadline(std::chrono::steady_clock::now() + patience * 3 / 4);
  try {
    requirement.check(adapter);
    requireNonePending(adapter);
    return {Outcome::kMet, ""};
  } catch (const Skipped& missing) {
    return left(adapter, Outcome::kSkipped, missing.what());
  } catch (const NeverReturned& instead) {
    return {Outcome::kNeverReturned, instead.what()};
  } catch (const NotMet& instead) {
    return left(adapter, Outcome::kNotMet, instead.what());
  } catch (const std::exception& exception) {
    return left(adapter, Outcome::kNotMet, "the C++ exception " + shown(exception.what()));
  } catch (const ForcedUnwind&) {
    throw;
  } catch (...) {
    return left(adapter, Outcome::kNotMet, "a C++ exception of an unknown kind");
  }
}

}  // namespace quen::conformance
