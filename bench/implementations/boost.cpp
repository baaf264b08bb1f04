// Boost.Filesystem: the workloads on paths and folders.

#include <boost/filesystem.hpp>

#include "bench/implementations/implementation.h"

namespace fs = boost::filesystem;
using namespace quen::bench;

namespace {

template <class Operation>
Workload forEachLine(Operation operation) {
  return repeated([operation](Measurement& m, const Arguments& a) {
    const std::vector<std::string>& lines = linesOf(a.at(0));
    std::vector<std::string> results(lines.size());
    m.start();
    for (std::size_t i = 0; i < lines.size(); ++i) {
      results[i] = operation(fs::path(lines[i])).native();
    }
    m.stop();
    for (const std::string& result : results) m.use(result.size());
  });
}

void list(Measurement& m, const Arguments& a) {
  m.start();
  std::vector<std::string> names;
  std::uint64_t known = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(a.at(0))) {
    known += fs::exists(fs::status(entry.path())) ? 1U : 0U;
    names.push_back(entry.path().filename().native());
  }
  m.stop();
  m.use(known);
}

void removeTree(Measurement& m, const Arguments& a) {
  makeTree(a.at(0), std::stoi(a.at(1)));
  m.start();
  fs::remove_all(a[0]);
  m.stop();
  m.use(std::stoull(a[1]));
}

}  // namespace

int main() {
  return serve({
      {"normalize", forEachLine([](const fs::path& path) { return path.lexically_normal(); })},
      {"parent", forEachLine([](const fs::path& path) { return path.parent_path(); })},
      {"resolve", forEachLine([](const fs::path& path) {
         return (path / "../sibling/name.txt").lexically_normal();
       })},
      {"name", forEachLine([](const fs::path& path) { return path.filename(); })},
      {"extension", forEachLine([](const fs::path& path) { return path.extension(); })},
      {"list", repeated(list)},
      {"remove_tree", repeated(removeTree)},
  });
}
