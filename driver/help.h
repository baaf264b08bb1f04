// Help texts as data, paragraphs and tables of two columns, for --help, the shell and the manual.
#pragma once

#include <string>
#include <vector>

namespace quen::driver {

struct HelpRow {
  std::string term;
  std::string text;
};

// A paragraph and the table below it; either may be empty.
struct Paragraph {
  std::string text;
  std::vector<HelpRow> rows = {};
};

// Sections with a title are shared by several commands: the manual page shows each of them once.
struct HelpSection {
  std::string title;
  std::vector<Paragraph> paragraphs;
};

using Help = std::vector<HelpSection>;

// The text for a terminal: lines of at most 92 characters, the second column of a table aligned.
std::string rendered(const Help& help);
std::string rendered(const std::vector<HelpRow>& rows);

}  // namespace quen::driver
