#include "tests/interleavings/families.h"

#include <algorithm>
#include <functional>
#include <string_view>

namespace quen::interleavings {

namespace {

using Row = std::string;

// All rows of 1 to `calls` of the letters that satisfy a condition.
Rows rowsOf(
    std::string_view letters, int calls,
    const std::function<bool(const Row&)>& accepts = [](const Row&) { return true; }) {
  Rows all{""};
  for (std::size_t begin = 0, length = 1; length <= static_cast<std::size_t>(calls); ++length) {
    const std::size_t end = all.size();
    for (; begin < end; ++begin) {
      for (const char letter : letters) all.push_back(all[begin] + letter);
    }
  }
  all.erase(all.begin());
  std::erase_if(all, [&](const Row& row) { return !accepts(row); });
  return all;
}

// A thread has a file of its own from its "o" on.
bool opensOnceBeforeUse(const Row& row) {
  const auto isOwn = [](char letter) { return std::string_view("wfc").find(letter) != Row::npos; };
  const auto open = std::find(row.begin(), row.end(), 'o');
  return std::none_of(row.begin(), open, isOwn) &&
         (open == row.end() || std::find(open + 1, row.end(), 'o') == row.end());
}

bool opensOnce(const Row& row) { return opensOnceBeforeUse(row) && row.find('o') != Row::npos; }

bool endsInExit(const Row& row) {
  return row.find('X') == row.size() - 1 && opensOnceBeforeUse(row);
}

bool forksOnce(const Row& row) { return std::count(row.begin(), row.end(), 'K') == 1; }

// Each of the first rows with all multisets of so many of the others.
std::vector<Rows> combined(const Rows& firsts, const Rows& others, int count) {
  std::vector<Rows> programs;
  for (const Row& first : firsts) {
    std::vector<std::size_t> indices(static_cast<std::size_t>(count), 0);
    for (;;) {
      Rows rows{first};
      for (const std::size_t index : indices) rows.push_back(others[index]);
      programs.push_back(rows);
      // The next multiset, as a sequence that does not decrease.
      auto last = indices.rbegin();
      while (last != indices.rend() && *last == others.size() - 1) ++last;
      if (last == indices.rend()) break;
      const std::size_t next = *last + 1;
      std::fill(indices.rbegin(), last + 1, next);
    }
  }
  return programs;
}

// All multisets of rows.
std::vector<Rows> multisets(const Rows& rows, int count) {
  std::vector<Rows> programs;
  for (std::size_t first = 0; first < rows.size(); ++first) {
    const Rows rest(rows.begin() + static_cast<std::ptrdiff_t>(first), rows.end());
    for (Rows& program : combined({rows[first]}, rest, count - 1)) programs.push_back(program);
  }
  return programs;
}

// The same with a thread that never comes back from Quen_raise.
std::vector<Rows> withBlocked(std::vector<Rows> programs) {
  for (Rows& rows : programs) rows.push_back("S");
  return programs;
}

}  // namespace

std::vector<Family> families(int threads, int calls) {
  const int others = threads - 1;
  const Rows any = rowsOf("WFC", calls);
  const Rows raising = rowsOf("WCU", calls);
  const Rows opening = rowsOf("owWU", calls, opensOnceBeforeUse);
  return {
      {"one writer", Disk::kWorks, multisets(any, threads)},
      {"long texts", Disk::kWorks, combined(rowsOf("LC", calls), rowsOf("WLFC", calls), others)},
      {"a disk that fails once", Disk::kFailsOnce, multisets(any, threads)},
      {"a full disk", Disk::kFull, multisets(any, threads)},
      {"writers of their own", Disk::kWorks,
       multisets(rowsOf("owfcUWC", calls, opensOnce), threads)},
      {"exit", Disk::kWorks, combined(rowsOf("WCXow", calls, endsInExit), raising, others)},
      {"exit while others open", Disk::kWorks,
       combined(rowsOf("WX", calls, endsInExit), opening, others)},
      {"fork", Disk::kWorks, combined(rowsOf("WCK", calls, forksOnce), raising, others)},
      {"exit while Quen_raise does not return", Disk::kWorks,
       withBlocked(combined(rowsOf("WCX", calls, endsInExit), any, others - 1))},
      {"fork while Quen_raise does not return", Disk::kWorks,
       withBlocked(combined(rowsOf("WCK", calls, forksOnce), any, others - 1))},
  };
}

Total explore(const Family& family, std::size_t first, std::size_t step) {
  Total total;
  for (std::size_t index = first; index < family.programs.size(); index += step) {
    WriterProgram program(family.programs[index], family.disk);
    const Exploration exploration = explore(program);
    ++total.programs;
    total.schedules += exploration.schedules;
    total.abandoned += exploration.abandoned;
    total.operations = std::max(total.operations, exploration.operations);
    if (exploration.failure.empty()) continue;
    total.failure = "program";
    for (const std::string& row : family.programs[index]) total.failure += " " + row;
    total.failure += ": " + exploration.failure;
    break;
  }
  return total;
}

}  // namespace quen::interleavings
