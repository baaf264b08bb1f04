// Does the ordinary work once, in a folder that exists and is empty: PROGRAM FOLDER

#include <iostream>

#include "tests/checked/workload.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  quen::tests::workIn(arguments[1]);
  std::cout << "done\n";
  return 0;
}
