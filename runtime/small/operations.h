// What the 20 operations do in the small runtime, under names of their own: boundary.cpp gives them
// the symbols that the module asks for. See quen/io/operations.h for what each has to do.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "quen/io/operations.h"

namespace quen::small::operations {

std::filesystem::path runtimeFsPath(const char* text);
std::string visiblePathString(const std::filesystem::path& path, bool explicitWindowsRoot);
void* allocPathString(const std::filesystem::path& path, bool explicitWindowsRoot);
void* allocTypedPathObjectFromPath(const std::filesystem::path& path, bool nonFolder,
                                   bool explicitWindowsRoot, bool parentTraversal);
const char* filePathFromObject(void* object);
bool pathHasExplicitWindowsRoot(const char* text);
QuenPathEntryKind pathEntryKind(const std::filesystem::path& path);
void cachePathEntryKind(const std::filesystem::path& path, QuenPathEntryKind kind);
bool pathExists(const std::filesystem::path& path);
void* allocString(const std::string& bytes);
bool readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error);
bool writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                        std::string& error);
bool hasObjectMagic(void* pointer);
void* allocObject(const char* className);
std::int64_t getFieldI64(void* object, const char* field);
void setFieldPtr(void* object, const char* field, void* value);
int isInstanceOf(void* object, const char* className);
void addToArrayList(void* list, void* element);
void raise(const char* exceptionClass, const char* message);
int hasPendingError();

}  // namespace quen::small::operations
