#include "driver/help.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace quen::driver {

namespace {

constexpr std::size_t kLineWidth = 92;
constexpr std::size_t kIndent = 2;
constexpr std::size_t kGap = 2;
constexpr std::size_t kWidestTerm = 34;  // a longer term has a line of its own

// Wraps the text at word boundaries and indents all lines but the first to the column.
std::string wrapped(const std::string& text, std::size_t column) {
  std::string lines;
  std::size_t used = column;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const bool isFirst = used == column;
    if (!isFirst && used + 1 + word.size() > kLineWidth) {
      lines += '\n' + std::string(column, ' ');
      used = column;
    } else if (!isFirst) {
      lines += ' ';
      ++used;
    }
    lines += word;
    used += word.size();
  }
  return lines + '\n';
}

std::string rendered(const Paragraph& paragraph) {
  const std::string text = paragraph.text.empty() ? "" : wrapped(paragraph.text, 0);
  return text + rendered(paragraph.rows);
}

}  // namespace

std::string rendered(const std::vector<HelpRow>& rows) {
  std::size_t widest = 0;
  for (const HelpRow& row : rows) {
    if (row.term.size() <= kWidestTerm) widest = std::max(widest, row.term.size());
  }
  const std::size_t column = kIndent + widest + kGap;

  std::string lines;
  for (const HelpRow& row : rows) {
    const std::size_t end = kIndent + row.term.size();
    lines += std::string(kIndent, ' ') + row.term;
    lines += end + kGap > column ? '\n' + std::string(column, ' ') : std::string(column - end, ' ');
    lines += wrapped(row.text, column);
  }
  return lines;
}

std::string rendered(const Help& help) {
  std::string text;
  for (const HelpSection& section : help) {
    if (!text.empty()) text += '\n';
    if (!section.title.empty()) text += section.title + ":\n";
    for (const Paragraph& paragraph : section.paragraphs) text += rendered(paragraph);
  }
  return text;
}

}  // namespace quen::driver
