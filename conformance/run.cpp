// Asks for all requirements in turn, and tells.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ostream>
#include <utility>

#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

constexpr std::size_t kMostBytesShown = 40;

struct Summary {
  int asked = 0;
  int notMet = 0;
  int skipped = 0;
  bool threadNeverReturned = false;
};

Requirements allRequirements() {
  Requirements all;
  for (const auto subject : {textRequirements, pathRequirements, objectRequirements,
                             magicRequirements, entryRequirements, byteArrayRequirements,
                             listRequirements, threadRequirements, exceptionRequirements}) {
    for (Requirement& each : subject()) all.push_back(std::move(each));
  }
  return all;
}

// No operation but Quen_raise makes an exception pending, and whoever raises takes it.
void requireNonePending(const Adapter& adapter) {
  if (const auto left = adapter.takeException()) {
    throw NotMet("left pending: " + left->className + ' ' + shown(left->message));
  }
}

void ask(const Requirement& requirement, const Adapter& adapter, Summary& summary,
         std::ostream& out) {
  const auto notMet = [&](const std::string& instead) {
    ++summary.notMet;
    out << "NOT MET  " << requirement.words << ": " << instead;
    // Lest the next requirement is blamed.
    adapter.takeException();
  };

  ++summary.asked;
  try {
    requirement.check(adapter);
    requireNonePending(adapter);
    out << "met      " << requirement.words;
  } catch (const Skipped& missing) {
    ++summary.skipped;
    out << "skipped  " << requirement.words << ": " << missing.what();
  } catch (const NeverReturned& instead) {
    summary.threadNeverReturned = true;
    notMet(instead.what());
  } catch (const NotMet& instead) {
    notMet(instead.what());
  } catch (const std::exception& exception) {
    notMet("the C++ exception " + shown(exception.what()));
  } catch (...) {
    notMet("a C++ exception of an unknown kind");
  }
  out << std::endl;
}

}  // namespace

void* Adapter::newFolderSubclass(const std::string&) const { return nullptr; }

void Adapter::enterThread() const {}

void Adapter::leaveThread() const {}

int runConformance(const Adapter& adapter, std::ostream& out) {
  Summary summary;
  for (const Requirement& requirement : allRequirements()) ask(requirement, adapter, summary, out);

  out << summary.asked << " requirements, " << summary.notMet << " not met";
  if (summary.skipped > 0) out << ", " << summary.skipped << " skipped";
  out << std::endl;
  if (summary.threadNeverReturned) std::_Exit(1);
  return summary.notMet == 0 ? 0 : 1;
}

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

std::string shown(std::string_view bytes) {
  std::string text = "\"";
  for (const char each : bytes.substr(0, kMostBytesShown)) {
    const auto byte = static_cast<unsigned char>(each);
    if (each == '"' || each == '\\') {
      text += {'\\', each};
    } else if (byte >= 0x20 && byte < 0x7F) {
      text += each;
    } else {
      std::array<char, 5> escaped{};
      static_cast<void>(std::snprintf(escaped.data(), escaped.size(), "\\x%02X", byte));
      text += escaped.data();
    }
  }
  text += '"';
  if (bytes.size() > kMostBytesShown) {
    text += "... (" + std::to_string(bytes.size()) + " bytes)";
  }
  return text;
}

}  // namespace quen::conformance
