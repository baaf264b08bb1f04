// The lexical normal form, computed on the text of a path without a std::filesystem::path per
// element.

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

// Removes the first element and the separator after it from a text, and returns the element. It is
// empty between two adjacent separators, before the first of an absolute path, and after the last.
std::string_view takeElement(std::string_view& text) {
  const std::size_t end = text.find(kSeparator);
  const std::string_view element = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return element;
}

// A path without an element that begins with a dot and without adjacent separators is normal, and
// most are. The loop has no branch, so that compilers vectorize it.
bool isClearlyNormal(std::string_view text) {
  unsigned char doubtful = text.starts_with('.') ? 1 : 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    const unsigned char begins = text[i - 1] == kSeparator ? 1 : 0;
    const unsigned char isDot = text[i] == '.' ? 1 : 0;
    const unsigned char isSeparator = text[i] == kSeparator ? 1 : 0;
    doubtful |= begins & (isDot | isSeparator);
  }
  return doubtful == 0;
}

// A path of separators alone stays as it is.
std::string normalText(std::string_view text) {
  if (isOnlySeparators(text)) return std::string(text);

  const bool absolute = text.starts_with(kSeparator);
  std::string normal(text.size() + 1, kSeparator);
  std::size_t end = absolute ? 1 : 0;

  // A separator is written after every element. A ".." removes the name before it, if there is one
  // after what must stay: the root, or the ".." elements that a relative path begins with.
  std::size_t kept = end;
  bool endsInName = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view element = takeElement(rest);
    endsInName = false;
    if (element.empty() || element == ".") continue;
    const bool isParentStep = element == "..";
    if (isParentStep && end > kept) {
      end = normal.rfind(kSeparator, end - 2) + 1;
    } else if (!isParentStep || !absolute) {
      end += element.copy(normal.data() + end, element.size());
      normal[end++] = kSeparator;
      if (isParentStep) kept = end;
      endsInName = !isParentStep && text.back() != kSeparator;
    }
  }
  const bool endsInParentStep = !absolute && end == kept;
  if (end > 0 && (endsInName || endsInParentStep)) --end;
  if (end == 0) return ".";
  normal.resize(end);
  return normal;
}

}  // namespace

// A "." is normal only as the whole path, and a ".." only at the beginning of a relative path,
// where the last element may not be a ".." with a separator after it.
bool hasNormalElements(std::string_view text) {
  if (isClearlyNormal(text) || text == ".") return true;

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
  if (isClearlyNormal(path.native())) return path;

  std::string normal = normalText(path.native());
  if (normal == path.native()) return path;
  return {std::move(normal)};
}

fs::path normalFormOf(const std::string& text) { return {normalText(text)}; }

}  // namespace quen::io
