// The operations as the small runtime implements them, in a namespace, so that several runtimes can
// share them: boundary.cpp defines the symbols that the module imports. quen/io/operations.h
// documents each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "quen/io/operations.h"
#include "runtime/parts/operations.h"

namespace quen::small::operations {

using parts::hasPendingError;
using parts::raise;

bool hasObjectMagic(void* pointer);
void* allocObject(const char* className);
std::int64_t getFieldI64(void* object, const char* field);
void setFieldPtr(void* object, const char* field, void* value);
int isInstanceOf(void* object, const char* className);
void addToArrayList(void* list, void* element);

void* allocString(const std::string& bytes);
bool readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error);
bool writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                        std::string& error);

using parts::pathEntryKind;
using parts::pathExists;
void cachePathEntryKind(const std::filesystem::path& path, QuenPathEntryKind kind);

using parts::pathHasExplicitWindowsRoot;
using parts::runtimeFsPath;
using parts::visiblePathString;
void* allocPathString(const std::filesystem::path& path, bool explicitWindowsRoot);
void* allocTypedPathObjectFromPath(const std::filesystem::path& path, bool nonFolder,
                                   bool explicitWindowsRoot, bool parentTraversal);
const char* filePathFromObject(void* object);

}  // namespace quen::small::operations
