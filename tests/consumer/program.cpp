// A program that uses the installed module and small runtime.

#include <quen/io/entry_points.h>
#include <quen/small/host.h>

#include <iostream>

bool isNormalized(void* path);

int main() {
  const quen::small::Scope scope;

  void* path = quen_io_Path_normalize(quen::small::newFolderPath("a/../b/"));
  std::cout << quen::small::pathText(path).value_or("none") << ' ' << isNormalized(path) << '\n';

  quen_io_FileReader__readAllTextPath("/nowhere");
  const auto exception = quen::small::takeException();
  std::cout << (exception ? exception->className + ": " + exception->message : "none") << '\n';
}
