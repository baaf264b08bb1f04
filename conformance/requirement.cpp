#include "conformance/requirement.h"

#include <algorithm>

#include "runtime/quoted.h"

namespace quen::conformance {

namespace {

constexpr std::size_t kMostBytesShown = 40;

}  // namespace

void require(bool condition, const std::string& instead) {
  if (!condition) throw NotMet(instead);
}

void requireEqual(std::string_view what, std::string_view actual, std::string_view expected) {
  if (actual == expected) return;
  std::string instead = std::string(what) + " is " + shown(actual) + ", not " + shown(expected);
  const auto mismatch =
      std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  const auto place = static_cast<std::size_t>(mismatch.first - actual.begin());
  if (place >= kMostBytesShown) instead += ", from byte " + std::to_string(place) + " on";
  throw NotMet(instead);
}

void* made(void* object, std::string_view what) {
  require(object != nullptr, std::string(what) + " is null");
  return object;
}

void requireRaised(const Adapter& adapter, std::string_view message) {
  const std::optional<Exception> taken = adapter.takeException();
  requireEqual("the message", taken ? taken->message : "none", message);
}

std::string shown(std::string_view bytes) { return quoted(bytes, kMostBytesShown); }

}  // namespace quen::conformance
