// The C library's stdio and directory functions.

#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/implementations/implementation.h"

using namespace quen::bench;

namespace {

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
  void operator()(DIR* folder) const { closedir(folder); }
};
using File = std::unique_ptr<std::FILE, Close>;
using Folder = std::unique_ptr<DIR, Close>;

File openFile(const std::string& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode));
  if (!file) throw std::runtime_error("cannot open " + path);
  return file;
}

void readFrom(Measurement& m, const std::string& path, long position, std::size_t count) {
  m.start();
  const File file = openFile(path, "rb");
  const auto bytes = std::make_unique_for_overwrite<char[]>(count);
  if (position != 0) std::fseek(file.get(), position, SEEK_SET);
  m.use(std::fread(bytes.get(), 1, count, file.get()));
  m.stop();
}

void writeTexts(Measurement& m, int times, const Arguments& a) {
  const std::string text(std::stoul(a.at(1)), 'x');
  m.start();
  onThreads(std::stoi(a.at(2)), [&](int number) {
    const File file = openFile(a.at(0) + "." + std::to_string(number), "wb");
    for (int i = 0; i < times; ++i) std::fwrite(text.data(), 1, text.size(), file.get());
  });
  m.stop();
  m.use(text.size() * std::stoull(a[2]) * static_cast<unsigned>(times));
}

void publish(Measurement& m, const Arguments& a) {
  const std::string text(std::stoul(a.at(1)), 'x');
  const std::string temporary = a.at(0) + ".tmp-1";
  m.start();
  m.use(std::fwrite(text.data(), 1, text.size(), openFile(temporary, "wb").get()));
  if (std::rename(temporary.c_str(), a[0].c_str()) != 0) throw std::runtime_error("cannot rename");
  m.stop();
}

void list(Measurement& m, const Arguments& a) {
  m.start();
  const Folder folder(opendir(a.at(0).c_str()));
  if (!folder) throw std::runtime_error("cannot open " + a[0]);
  std::vector<std::string> names;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    struct stat status {};
    stat((a[0] + "/" + name).c_str(), &status);
    names.push_back(name);
  }
  m.stop();
  m.use(names.size());
}

}  // namespace

int main() {
  return serve({
      {"prefix", repeated([](Measurement& m, const Arguments& a) {
         readFrom(m, a.at(0), 0, std::stoul(a.at(1)));
       })},
      {"range", repeated([](Measurement& m, const Arguments& a) {
         readFrom(m, a.at(0), std::stol(a.at(1)), std::stoul(a.at(2)));
       })},
      {"write", writeTexts},
      {"publish", repeated(publish)},
      {"list", repeated(list)},
  });
}
