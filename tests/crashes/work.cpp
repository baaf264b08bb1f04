// Writes into the file system whose writes run.py records. Reads commands from standard input, and
// answers each with a line: the raised exception, or an empty one. Texts have no white space.
//
//   publish FILE TEXT   write FILE TEXT   bytes FILE TEXT   append FILE TEXT   rename FILE NAME
//   open FILE TEXT      put FILE TEXT     flush FILE TEXT   close FILE TEXT
//
// The last line works on one handle: each takes what it needs of the file and the text.

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"

using namespace quen::small;

namespace {

std::int64_t gHandle = 0;

bool call(const std::string& command, const std::string& file, const std::string& text) {
  const Scope scope;
  if (command == "publish") {
    quen_data_internal_DocumentIndexStore__writeAtomic(file.c_str(), text.c_str());
  } else if (command == "write") {
    quen_io_FileWriter__writePath(file.c_str(), text.c_str());
  } else if (command == "bytes") {
    quen_io_Files__writeBytesPath(file.c_str(), newByteArray({text.begin(), text.end()}));
  } else if (command == "append") {
    quen_io_FileWriter__appendPath(file.c_str(), text.c_str());
  } else if (command == "rename") {
    quen_io_Path_rename(newPath(file), text.c_str());
  } else if (command == "open") {
    gHandle = quen_io_FileWriter__openPath(file.c_str(), 0);
  } else if (command == "put") {
    quen_io_FileWriter__writeHandle(gHandle, text.c_str());
  } else if (command == "flush") {
    quen_io_FileWriter__flushHandle(gHandle);
  } else if (command == "close") {
    quen_io_FileWriter__closeHandle(gHandle);
  } else {
    return false;
  }
  const auto raised = takeException();
  std::cout << (raised ? raised->className + ": " + raised->message : "") << std::endl;
  return true;
}

}  // namespace

int main() {
  std::string command, file, text;
  while (std::cin >> command >> file >> text) {
    if (!call(command, file, text)) return 2;
  }
  return 0;
}
