// The conformance program of the small runtime.

#include "conformance/small_adapter.h"

int main(int count, char** arguments) {
  return quen::conformance::runConformance(quen::conformance::SmallAdapter(), count, arguments);
}
