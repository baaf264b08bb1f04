// The header of the entry points also compiles as C++17.

#include <quen/io/entry_points.h>

static_assert(__cplusplus == 201703L);

bool isNormalized(void* path);

bool isNormalized(void* path) { return quen_io_Path__isNormalized(path); }
