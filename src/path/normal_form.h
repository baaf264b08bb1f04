// The lexical normal form, found on the text of a path. Taking a path apart and putting another
// together is most of what the standard library spends on it, so a path that is normal already is
// passed on, and any other is put together once. Private to path/.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quen::io {

// Whether a path of this text equals its lexical normal form, element by element; how many
// separators stand between two elements makes no difference.
bool hasNormalElements(std::string_view text);

// The lexical normal form of the path: the path itself when its text is that already.
std::filesystem::path normalForm(std::filesystem::path path);

// The lexical normal form of a path of this text.
std::filesystem::path normalFormOf(const std::string& text);

}  // namespace quen::io
