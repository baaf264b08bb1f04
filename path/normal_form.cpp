// The lexical normal form, found on the text of a path.

#include "path/normal_form.h"

#include <cstddef>
#include <utility>

namespace fs = std::filesystem;

namespace quen::io {

namespace {

constexpr char kSeparator = '/';
static_assert(fs::path::preferred_separator == kSeparator, "a path has no root name here");

bool isOnlySeparators(std::string_view text) {
  return text.find_first_not_of(kSeparator) == std::string_view::npos;
}

// Takes the first element off a text, and the separator behind it. The element is empty where two
// separators meet, at the beginning of an absolute path, and behind the last separator.
std::string_view takeElement(std::string_view& text) {
  const std::size_t end = text.find(kSeparator);
  const std::string_view element = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return element;
}

// A path of separators alone stays as it is.
bool isNormal(std::string_view text) {
  return hasNormalElements(text) &&
         (text.find("//") == std::string_view::npos || isOnlySeparators(text));
}

std::string normalText(std::string_view text) {
  const bool absolute = text.starts_with(kSeparator);
  std::string normal(absolute ? "/" : "");
  normal.reserve(text.size() + 1);

  // Every element brings a separator. A parent step takes the name before it away, when there is
  // one behind what has to stay: the root, or the parent steps that a relative path begins with.
  std::size_t kept = normal.size();
  bool endsInName = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view element = takeElement(rest);
    endsInName = false;
    if (element.empty() || element == ".") continue;
    if (element != "..") {
      normal.append(element) += kSeparator;
      endsInName = text.back() != kSeparator;
    } else if (normal.size() > kept) {
      normal.erase(normal.rfind(kSeparator, normal.size() - 2) + 1);
    } else if (!absolute) {
      normal += "../";
      kept = normal.size();
    }
  }
  const bool endsInParentStep = !absolute && normal.size() == kept;
  if (!normal.empty() && (endsInName || endsInParentStep)) normal.pop_back();
  return normal.empty() ? "." : normal;
}

}  // namespace

// A "." is normal only when it is the whole path, and a ".." only at the beginning of a relative
// one, without a separator behind the last.
bool hasNormalElements(std::string_view text) {
  if (text == ".") return true;

  bool parentStepIsNormal = !text.starts_with(kSeparator);
  std::string_view last;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view element = takeElement(rest);
    if (element.empty()) continue;
    if (element == "." || (element == ".." && !parentStepIsNormal)) return false;
    parentStepIsNormal = element == "..";
    last = element;
  }
  return last != ".." || !text.ends_with(kSeparator);
}

fs::path normalForm(fs::path path) {
  return isNormal(path.native()) ? std::move(path) : fs::path(normalText(path.native()));
}

fs::path normalFormOf(std::string text) {
  return isNormal(text) ? fs::path(std::move(text)) : fs::path(normalText(text));
}

}  // namespace quen::io
