// Does the small runtime do what the module needs?

#include <iostream>

#include "conformance/small_adapter.h"

int main() {
  return quen::conformance::runConformance(quen::conformance::SmallAdapter(), std::cout);
}
