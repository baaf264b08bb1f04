// The workloads of whoever offers entry points as the module does: the module itself and its plain
// form.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "bench/contestants/contestant.h"

namespace quen::bench {

struct EntryPoints {
  bool (*validate)(const std::string& text);
  void* (*readAllText)(const char* path);
  void* (*readPrefix)(const char* path, std::int64_t limit);
  std::int64_t (*readBytes)(const char* path, std::int64_t position, void* destination,
                            std::int64_t count);
  void* (*normalizePath)(const char* path);
  void* (*normalize)(void* self);
  void* (*parentPath)(const char* path);
  void* (*resolvePath)(const char* base, const char* operand);
  bool (*isNormalized)(void* self);
  void* (*pathName)(const char* path);
  void* (*pathExtension)(const char* path);
  std::int64_t (*openWriter)(const char* path, std::int32_t append);
  void (*write)(std::int64_t handle, const char* text);
  void (*closeWriter)(std::int64_t handle);
  void (*writeAtomic)(const char* path, const char* content);
  void* (*listNames)(const char* path);
  void (*removeAll)(const char* path);
  bool (*isUnsafe)(const char* path);
};

std::map<std::string, Workload> workloadsOf(const EntryPoints& entryPoints);

}  // namespace quen::bench
