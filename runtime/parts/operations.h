// The operations of quen/io/runtime_parts.h under names of their own, for runtimes that define the
// symbols by them. quen/io/operations.h documents each.
#pragma once

#include <filesystem>
#include <string>

#include "quen/io/operations.h"

namespace quen::parts {

std::filesystem::path runtimeFsPath(const char* text);
std::string visiblePathString(const std::filesystem::path& path, bool explicitWindowsRoot);
bool pathHasExplicitWindowsRoot(const char* text);

QuenPathEntryKind pathEntryKind(const std::filesystem::path& path);
bool pathExists(const std::filesystem::path& path);

void raise(const char* exceptionClass, const char* message);
int hasPendingError();

}  // namespace quen::parts
