#include "runtime/checked/call.h"

#include <stdexcept>
#include <string_view>

#include "runtime/checked/host.h"

namespace quen::checked {

namespace {

constexpr std::string_view kRaise = "Quen_raise";

thread_local constinit Call* tCall = nullptr;

// The module raises under locks of writers, which the entry points of writers then wait for.
bool isOfWriter(std::string_view entryPoint) { return entryPoint.ends_with("Handle"); }

bool removesRecursively(std::string_view entryPoint) {
  return entryPoint == "quen_io_FolderPath__removeAllNative" ||
         entryPoint == "Quen_isUnsafeRecursiveDeletePath";
}

}  // namespace

Call::Call(const char* entryPoint) : entryPoint_(entryPoint), outer_(tCall) {
  expectNoRaiseAround();
  tCall = this;
  if (settings().passive) return;
  pending_ = host::hasPendingError() != 0;
  if (pending_ && outer_ == nullptr) {
    report(entryPoint_, "Quen_hasPendingError", "tells of an exception from before the call");
  }
}

Call::~Call() { tCall = outer_; }

Call* Call::current() { return tCall; }

void Call::expectNoRaiseAround() const {
  if (outer_ == nullptr || outer_->operation_ == nullptr) return;
  const std::string_view operation = outer_->operation_;
  const std::string where = std::string(", from ") + outer_->entryPoint_;
  if (operation == kRaise) {
    report(entryPoint_, "Quen_raise", "called the module", where);
    if (isOfWriter(entryPoint_) && isOfWriter(outer_->entryPoint_)) {
      stop(entryPoint_, "it would wait forever for a lock that the thread holds");
    }
  }
  if (operation == "Quen_runtimeFsPath" && removesRecursively(entryPoint_)) {
    report(entryPoint_, "Quen_runtimeFsPath", "called a recursive removal or its guard", where);
  }
}

void Call::takesText(const char* parameter, const char* text) {
  watch(parameter, text, "changed before the entry point returned");
  if (text == nullptr || settings().passive) return;
  if (host::hasObjectMagic(const_cast<char*>(text))) {
    report(entryPoint_, "hasObjectMagic", "gave true for the text argument ", parameter);
  }
}

void Call::takesObject(const char* parameter, void* object) {
  if (object == nullptr || settings().passive) return;
  if (!host::hasObjectMagic(object)) {
    report(entryPoint_, "hasObjectMagic", "gave false for the object argument ", parameter);
  }
}

void Call::watch(const char* subject, const char* text, const char* claim) {
  if (text == nullptr) return;
  const Extent extent = extentOf(text);
  if (!extent.readable) {
    report(entryPoint_, subject, "has no NUL before memory that cannot be read");
  } else if (watchedCount_ < watched_.size()) {
    watched_[watchedCount_++] = {
        .subject = subject, .claim = claim, .text = WatchedText(text, extent)};
  }
}

void* Call::pathOfChecks() {
  if (pathOfChecks_ == nullptr) {
    pathOfChecks_ = host::allocTypedPathObjectFromPath("quen_io_checked", true, false, true);
  }
  return pathOfChecks_;
}

void Call::leavesWith(const std::exception& exception) const {
  if (foreignException_ || dynamic_cast<const std::length_error*>(&exception) != nullptr) return;
  report(entryPoint_, "the entry point", "was left by the C++ exception ", shown(exception.what()));
}

void Call::leavesWith() const {
  if (!foreignException_) report(entryPoint_, "the entry point", "was left by a C++ exception");
}

void Call::expectRaisedPending() {
  if (!raised_) return;
  raised_ = false;
  pending_ = host::hasPendingError() != 0;
  if (!pending_) report(entryPoint_, "Quen_raise", "left no exception pending");
}

void Call::expectTextsUnchanged() {
  for (std::size_t i = 0; i < watchedCount_; ++i) {
    std::optional<Watched>& each = watched_[i];
    if (!each || each->text.isUnchanged()) continue;
    report(entryPoint_, each->subject, each->claim,
           operation_ == nullptr ? "" : std::string(", while it called ") + operation_);
    each.reset();
  }
}

void Call::finish() {
  if (!settings().passive) expectRaisedPending();
  expectTextsUnchanged();
}

Operation::Operation(const char* name)
    : name_(name), call_(Call::current()), outer_(call_ == nullptr ? nullptr : call_->operation_) {
  if (call_ == nullptr) {
    checked::report("no entry point", name, "was called on a thread that is in no entry point");
    return;
  }
  if (!settings().passive) call_->expectRaisedPending();
  call_->operation_ = name;
}

Operation::~Operation() {
  if (call_ != nullptr) call_->operation_ = outer_;
}

void Operation::report(const char* claim, const std::string& details) const {
  reportOf(name_, claim, details);
}

void Operation::reportOf(const char* operation, const char* claim,
                         const std::string& details) const {
  const char* entryPoint = call_ == nullptr ? "no entry point" : call_->entryPoint_;
  checked::report(entryPoint, operation, claim, details);
}

// Quen_raise is called under locks of the module, so what it left behind is asked for later.
void Operation::returned() {
  if (call_ == nullptr) return;
  if (name_ == kRaise) {
    call_->raised_ = true;
  } else if (!settings().passive) {
    const bool pending = host::hasPendingError() != 0;
    if (pending && !call_->pending_) report("left an exception pending");
    if (!pending && call_->pending_) report("took the pending exception away");
    call_->pending_ = pending;
  }
  call_->expectTextsUnchanged();
}

void Operation::threw(const std::exception& exception) {
  report("threw the C++ exception ", shown(exception.what()));
  if (call_ != nullptr) call_->foreignException_ = true;
}

void Operation::threw() {
  report("threw a C++ exception");
  if (call_ != nullptr) call_->foreignException_ = true;
}

}  // namespace quen::checked
