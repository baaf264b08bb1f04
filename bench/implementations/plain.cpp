// The plain form of the module, through the same entry points.

#include "bench/implementations/entry_points.h"
#include "tests/plain/conventions.h"

int main() { return quen::bench::serve(quen::bench::workloadsOf(quen::plain::validateUtf8)); }
