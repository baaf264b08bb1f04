#include "bench/implementations/entry_points.h"

#include <stdexcept>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

namespace quen::bench {

namespace {

using small::Scope;

void requireNoException() {
  if (const auto exception = small::takeException()) throw std::runtime_error(exception->message);
}

// The objects that the work creates are freed outside the measured time.
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

// The same for work that gives a String, whose length is asked outside the measured time.
template <class Work>
void measureText(Measurement& measurement, const Work& work) {
  const Scope scope;
  measurement.start();
  void* text = work();
  measurement.stop();
  measurement.use(lengthOf(text));
  requireNoException();
}

// One call per line of a file.
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

// One call per line of a file, with a path object.
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

void writeOnThreads(int times, const Arguments& arguments) {
  const std::string text(std::stoul(arguments.at(1)), 'x');
  const int threads = std::stoi(arguments.at(2));
  onThreads(threads, [&](int number) {
    const std::int64_t handle =
        quen_io_FileWriter__openPath((arguments[0] + "." + std::to_string(number)).c_str(), 0);
    for (int i = 0; i < times; ++i) quen_io_FileWriter__writeHandle(handle, text.c_str());
    quen_io_FileWriter__closeHandle(handle);
    requireNoException();
  });
}

}  // namespace

std::map<std::string, Workload> workloadsOf(bool (*validate)(const std::string& text,
                                                             std::uint64_t& errorOffset)) {
  std::map<std::string, Workload> workloads;

  workloads["utf8"] = [validate](Measurement& m, int iterations, const Arguments& a) {
    const std::string& text = textOf(a.at(0));
    measure(m, [&] {
      std::uint64_t valid = 0;
      std::uint64_t errorOffset = 0;
      for (int i = 0; i < iterations; ++i) valid += validate(text, errorOffset) ? 1U : 0U;
      return valid;
    });
  };
  workloads["read_text"] = repeated([](Measurement& m, const Arguments& a) {
    measureText(m, [&] { return quen_io_FileReader__readAllTextPath(a.at(0).c_str()); });
  });
  workloads["prefix"] = repeated([](Measurement& m, const Arguments& a) {
    const std::int64_t limit = std::stoll(a.at(1));
    measureText(m, [&] { return quen_io_FileReader__readPrefixPath(a.at(0).c_str(), limit); });
  });
  workloads["range"] = repeated([](Measurement& m, const Arguments& a) {
    const Scope scope;
    const std::int64_t position = std::stoll(a.at(1));
    const std::int64_t count = std::stoll(a.at(2));
    void* bytes = small::newByteArray(static_cast<std::size_t>(count));
    measure(m, [&] {
      return static_cast<std::uint64_t>(
          quen_io_FileInputStream__readBytesPath(a.at(0).c_str(), position, bytes, count));
    });
  });
  workloads["normalize"] = forEachLine(quen_io_Path__normalizePath);
  workloads["normalize_object"] = forEachObject(quen_io_Path_normalize);
  workloads["parent"] = forEachLine(quen_io_Path__parentPath);
  workloads["resolve"] = forEachLine(
      [](const char* path) { return quen_io_Path__resolvePath(path, "../sibling/name.txt"); });
  workloads["is_normalized"] = forEachObject(quen_io_Path__isNormalized);
  workloads["name"] = forEachLine(quen_io_Path__pathName);
  workloads["extension"] = forEachLine(quen_io_Path__pathExtension);
  workloads["write"] = [](Measurement& m, int iterations, const Arguments& a) {
    const SecondThread second;
    measure(m, [&] {
      writeOnThreads(iterations, a);
      return std::stoull(a.at(1)) * std::stoull(a.at(2)) * static_cast<unsigned>(iterations);
    });
  };
  workloads["write_among"] = [](Measurement& m, int iterations, const Arguments& a) {
    const SecondThread second;
    std::vector<std::int64_t> others;
    for (int i = 0; i < std::stoi(a.at(3)); ++i)
      others.push_back(quen_io_FileWriter__openPath("/dev/null", 0));
    requireNoException();
    measure(m, [&] {
      writeOnThreads(iterations, a);
      return others.size();
    });
    for (const std::int64_t handle : others) quen_io_FileWriter__closeHandle(handle);
  };
  workloads["publish"] = repeated([](Measurement& m, const Arguments& a) {
    const std::string text(std::stoul(a.at(1)), 'x');
    measure(m, [&] {
      quen_data_internal_DocumentIndexStore__writeAtomic(a.at(0).c_str(), text.c_str());
      return text.size();
    });
  });
  workloads["list"] = repeated([](Measurement& m, const Arguments& a) {
    const Scope scope;
    m.start();
    void* names = quen_io_FolderPath__listNamesNative(a.at(0).c_str());
    m.stop();
    m.use(small::listElements(names).size());
    requireNoException();
  });
  workloads["remove_tree"] = repeated([](Measurement& m, const Arguments& a) {
    makeTree(a.at(0), std::stoi(a.at(1)));
    measure(m, [&] {
      quen_io_FolderPath__removeAllNative(a.at(0).c_str());
      return std::stoull(a.at(1));
    });
  });
  workloads["guard"] = repeated([](Measurement& m, const Arguments& a) {
    measure(m, [&] { return Quen_isUnsafeRecursiveDeletePath(a.at(0).c_str()) ? 1U : 0U; });
  });
  return workloads;
}

}  // namespace quen::bench
