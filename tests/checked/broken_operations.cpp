// The operations of the broken runtimes, for programs with a main function of their own.

int runKit(int count, char** arguments);
#define main runKit
#include "tests/conformance/broken_runtime.cpp"
#undef main
