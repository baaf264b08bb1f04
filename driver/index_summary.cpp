#include "driver/index_summary.h"

#include <iomanip>
#include <utility>

#include "driver/text.h"

namespace quen::driver {

namespace {

constexpr std::size_t kMostNamed = 10;

std::string labelOf(Kind kind) {
  switch (kind) {
    case Kind::kFile: return "  files";
    case Kind::kFolder: return "  folders";
    case Kind::kLink: return "  links";
    case Kind::kOther: return "  other";
    case Kind::kMissing: break;
  }
  return "  missing";
}

void printCount(std::ostream& output, const std::string& label, std::size_t count,
                const std::string& note = "") {
  output << std::left << std::setw(16) << label << std::right << std::setw(14) << count << note
         << '\n';
}

}  // namespace

void IndexSummary::add(const Entry& entry) {
  ++entries_;
  ++kinds_.at(static_cast<std::size_t>(entry.kind));
  if (entry.kind == Kind::kFile) ++texts_.at(static_cast<std::size_t>(entry.text));
  bytes_ += entry.size;
  if (entry.error.empty()) return;
  if (++unreadable_ <= kMostNamed) {
    named_.push_back(inQuotes(entry.path) + ": " + escaped(entry.error));
  }
}

void IndexSummary::print(std::ostream& output, std::int64_t maxTextBytes,
                         std::chrono::steady_clock::duration elapsed) const {
  printCount(output, "entries", entries_);
  for (const Kind kind : kKinds) printCount(output, labelOf(kind), count(kind));
  printCount(output, "bytes", static_cast<std::size_t>(bytes_));
  printCount(output, "valid UTF-8", count(Text::kUtf8), " files");
  printCount(output, "not UTF-8", count(Text::kNotUtf8), " files");
  printCount(output, "not read", count(Text::kNotRead),
             " files, larger than " + std::to_string(maxTextBytes) + " or unreadable");
  printCount(output, "unreadable", unreadable_, " entries");
  for (const std::string& each : named_) output << "  " << each << '\n';
  if (unreadable_ > named_.size()) {
    output << "  and " << unreadable_ - named_.size() << " more\n";
  }
  const std::chrono::duration<double> seconds = elapsed;
  output << std::left << std::setw(16) << "elapsed" << std::right << std::setw(14) << std::fixed
         << std::setprecision(2) << seconds.count() << " s\n";
}

}  // namespace quen::driver
