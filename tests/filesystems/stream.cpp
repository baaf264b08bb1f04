// Writes data whose integrity can be checked, and reads it, while a distributed file system loses
// bricks:
//
//   quen_io_stream publish FILE COUNT   publishes the versions 1 to COUNT of an index
//   quen_io_stream read FILE COUNT      reads the index, until it is version COUNT
//   quen_io_stream write FILE COUNT     writes the lines 1 to COUNT through a handle
//
// Prints a line for each publication and each read, with the number of the version, and for each
// flush, with the number of the last line; an error follows the number.

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

using namespace quen::small;

namespace {

// Versions differ in length, and are larger than one request of the file system.
std::string version(int number) {
  const std::string name = std::to_string(number);
  const int lines = 20'000 + number % 10 * 1'000;
  std::string text;
  for (int line = 1; line <= lines; ++line) text += name + ' ' + std::to_string(line) + '\n';
  return text;
}

// A raised exception takes precedence over other errors.
void tell(int number, const std::string& wrong = "") {
  const auto raised = takeException();
  std::cout << number << ' ' << (raised ? raised->className + ": " + raised->message : wrong)
            << std::endl;
}

void publish(const char* file, int count) {
  for (int number = 1; number <= count; ++number) {
    quen_data_internal_DocumentIndexStore__writeAtomic(file, version(number).c_str());
    tell(number);
  }
}

void read(const char* file, int count) {
  for (int number = 0; number != count;) {
    const Scope scope;
    const std::string text = stringBytes(quen_io_FileReader__readAllTextPath(file));
    number = std::atoi(text.c_str());
    const std::string whole = version(number);
    if (text == whole) {
      tell(number);
    } else {
      number = 0;
      tell(number, whole.starts_with(text) ? "cut short" : "mixed");
    }
  }
}

// The close writes the lines after the last flush.
void write(const char* file, int count) {
  constexpr int kLinesAFlush = 100;
  const std::int64_t handle = quen_io_FileWriter__openPath(file, 0);
  for (int number = 1; number <= count; ++number) {
    const std::string line = std::to_string(number) + std::string(80, '.') + '\n';
    quen_io_FileWriter__writeHandle(handle, line.c_str());
    if (number % kLinesAFlush != 0) continue;
    quen_io_FileWriter__flushHandle(handle);
    tell(number);
  }
  quen_io_FileWriter__closeHandle(handle);
  tell(count);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  const std::string what = arguments[1];
  const char* file = arguments[2];
  const int last = std::atoi(arguments[3]);
  if (what == "publish") publish(file, last);
  if (what == "read") read(file, last);
  if (what == "write") write(file, last);
  return 0;
}
