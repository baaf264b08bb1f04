// The lexical normal form, computed on the text of a path. path::lexically_normal spends most of
// its time on splitting one path into elements and joining another, so a path that is normal
// already is returned as it is, and any other is built once. Private to path/.
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
