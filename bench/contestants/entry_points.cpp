#include "bench/contestants/entry_points.h"

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/small/host.h"

namespace quen::bench {

namespace {

using small::Scope;

void requireNoException() {
  if (const auto exception = small::takeException()) throw std::runtime_error(exception->message);
}

// The objects that the work makes are given back when the clock stands still.
template <class Work>
void measure(Measurement& measurement, const Work& work) {
  const Scope scope;
  measurement.start();
  const std::uint64_t result = work();
  measurement.stop();
  measurement.use(result);
  requireNoException();
}

std::uint64_t lengthOf(void* string) { return small::stringBytes(string).size(); }

// One call for every line of a file.
template <class Call>
Workload forEachLine(Call call) {
  return repeated([call](Measurement& measurement, const Arguments& arguments) {
    const std::vector<std::string>& lines = linesOf(arguments.at(0));
    std::vector<void*> results(lines.size());
    const Scope scope;
    measurement.start();
    for (std::size_t i = 0; i < lines.size(); ++i) results[i] = call(lines[i].c_str());
    measurement.stop();
    for (void* result : results) measurement.use(lengthOf(result));
  });
}

// One call for a path object of every line.
template <class Call>
Workload forEachObject(Call call) {
  return repeated([call](Measurement& measurement, const Arguments& arguments) {
    const Scope scope;
    std::vector<void*> objects;
    for (const std::string& line : linesOf(arguments.at(0))) {
      objects.push_back(small::newPath(line));
    }
    std::uint64_t results = 0;
    measurement.start();
    for (void* object : objects) results += call(object) ? 1U : 0U;
    measurement.stop();
    measurement.use(results);
  });
}

// A second thread stays alive during the single one's work: without it the library would count
// owners without atomic operations, which no program with threads gets.
void writeOnThreads(const EntryPoints& e, int times, const Arguments& arguments) {
  const std::string text(std::stoul(arguments.at(1)), 'x');
  const int threads = std::stoi(arguments.at(2));
  onThreads(threads, [&](int number) {
    const std::int64_t handle =
        e.openWriter((arguments[0] + "." + std::to_string(number)).c_str(), 0);
    for (int i = 0; i < times; ++i) e.write(handle, text.c_str());
    e.closeWriter(handle);
    requireNoException();
  });
}

class SecondThread {
 public:
  SecondThread() : thread_([this] { released_.wait(false); }) {}
  ~SecondThread() {
    released_ = true;
    released_.notify_all();
  }

 private:
  std::atomic<bool> released_{false};
  std::jthread thread_;
};

}  // namespace

std::map<std::string, Workload> workloadsOf(const EntryPoints& e) {
  std::map<std::string, Workload> workloads;

  workloads["utf8"] = [e](Measurement& m, int iterations, const Arguments& a) {
    const std::string& text = textOf(a.at(0));
    measure(m, [&] {
      std::uint64_t valid = 0;
      for (int i = 0; i < iterations; ++i) valid += e.validate(text) ? 1U : 0U;
      return valid;
    });
  };
  workloads["read_text"] = repeated([e](Measurement& m, const Arguments& a) {
    const Scope scope;
    m.start();
    void* text = e.readAllText(a.at(0).c_str());
    m.stop();
    m.use(lengthOf(text));
    requireNoException();
  });
  workloads["prefix"] = repeated([e](Measurement& m, const Arguments& a) {
    const Scope scope;
    const std::int64_t limit = std::stoll(a.at(1));
    m.start();
    void* text = e.readPrefix(a.at(0).c_str(), limit);
    m.stop();
    m.use(lengthOf(text));
    requireNoException();
  });
  workloads["range"] = repeated([e](Measurement& m, const Arguments& a) {
    const Scope scope;
    const std::int64_t position = std::stoll(a.at(1));
    const std::int64_t count = std::stoll(a.at(2));
    void* bytes = small::newByteArray(static_cast<std::size_t>(count));
    measure(m, [&] {
      return static_cast<std::uint64_t>(e.readBytes(a.at(0).c_str(), position, bytes, count));
    });
  });
  workloads["normalize"] = forEachLine(e.normalizePath);
  workloads["normalize_object"] = forEachObject(e.normalize);
  workloads["parent"] = forEachLine(e.parentPath);
  workloads["resolve"] =
      forEachLine([e](const char* path) { return e.resolvePath(path, "../sibling/name.txt"); });
  workloads["is_normalized"] = forEachObject(e.isNormalized);
  workloads["name"] = forEachLine(e.pathName);
  workloads["extension"] = forEachLine(e.pathExtension);
  workloads["write"] = [e](Measurement& m, int iterations, const Arguments& a) {
    const SecondThread second;
    measure(m, [&] {
      writeOnThreads(e, iterations, a);
      return std::stoull(a.at(1)) * std::stoull(a.at(2)) * static_cast<unsigned>(iterations);
    });
  };
  workloads["write_among"] = [e](Measurement& m, int iterations, const Arguments& a) {
    const SecondThread second;
    std::vector<std::int64_t> others;
    for (int i = 0; i < std::stoi(a.at(3)); ++i) others.push_back(e.openWriter("/dev/null", 0));
    measure(m, [&] {
      writeOnThreads(e, iterations, a);
      return others.size();
    });
    for (const std::int64_t handle : others) e.closeWriter(handle);
  };
  workloads["publish"] = repeated([e](Measurement& m, const Arguments& a) {
    const std::string text(std::stoul(a.at(1)), 'x');
    measure(m, [&] {
      e.writeAtomic(a.at(0).c_str(), text.c_str());
      return text.size();
    });
  });
  workloads["list"] = repeated([e](Measurement& m, const Arguments& a) {
    const Scope scope;
    m.start();
    void* names = e.listNames(a.at(0).c_str());
    m.stop();
    m.use(small::listElements(names).size());
    requireNoException();
  });
  workloads["remove_tree"] = repeated([e](Measurement& m, const Arguments& a) {
    makeTree(a.at(0), std::stoi(a.at(1)));
    measure(m, [&] {
      e.removeAll(a.at(0).c_str());
      return std::stoull(a.at(1));
    });
  });
  workloads["guard"] = repeated([e](Measurement& m, const Arguments& a) {
    measure(m, [&] { return e.isUnsafe(a.at(0).c_str()) ? 1U : 0U; });
  });
  return workloads;
}

}  // namespace quen::bench
