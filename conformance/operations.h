// The operations as the checks call them: with a collection at the beginning and at the end of
// each, if the adapter offers one. Private to the kit.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "quen/io/operations.h"

namespace quen::conformance::operations {

// Calls the collect() of the adapter.
void collect();

template <class Call>
auto collecting(const Call& call) {
  struct AtTheEnd {
    ~AtTheEnd() { collect(); }
  };
  collect();
  const AtTheEnd atTheEnd;
  return call();
}

inline std::filesystem::path runtimeFsPath(const char* text) {
  return collecting([&] { return Quen_runtimeFsPath(text); });
}

inline void* allocPathString(const std::filesystem::path& path, bool explicitWindowsRoot) {
  return collecting([&] { return Quen_allocPathString(path, explicitWindowsRoot); });
}

inline std::string visiblePathString(const std::filesystem::path& path, bool explicitWindowsRoot) {
  return collecting([&] { return Quen_visiblePathString(path, explicitWindowsRoot); });
}

inline void* allocTypedPathObjectFromPath(const std::filesystem::path& path, bool nonFolder,
                                          bool explicitWindowsRoot, bool parentTraversal) {
  return collecting([&] {
    return Quen_allocTypedPathObjectFromPath(path, nonFolder, explicitWindowsRoot, parentTraversal);
  });
}

inline const char* filePathFromObject(void* object) {
  return collecting([&] { return Quen_filePathFromObject(object); });
}

inline bool pathHasExplicitWindowsRoot(const char* text) {
  return collecting([&] { return Quen_pathHasExplicitWindowsRoot(text); });
}

inline QuenPathEntryKind pathEntryKind(const std::filesystem::path& path) {
  return collecting([&] { return Quen_pathEntryKind(path); });
}

inline void cachePathEntryKind(const std::filesystem::path& path, QuenPathEntryKind kind) {
  collecting([&] { Quen_cachePathEntryKind(path, kind); });
}

inline bool pathExists(const std::filesystem::path& path) {
  return collecting([&] { return Quen_pathExists(path); });
}

inline void* allocString(const std::string& bytes) {
  return collecting([&] { return Quen_allocString(bytes); });
}

inline bool readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  return collecting([&] { return Quen_readByteArrayData(object, bytes, error); });
}

inline bool writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                               std::string& error) {
  return collecting([&] { return Quen_writeByteArrayData(object, bytes, count, error); });
}

inline bool hasObjectMagic(void* pointer) {
  return collecting([&] { return ::hasObjectMagic(pointer); });
}

inline void* allocObject(const char* className) {
  return collecting([&] { return Quen_allocObject(className); });
}

inline std::int64_t getFieldI64(void* object, const char* field) {
  return collecting([&] { return Quen_getField_i64(object, field); });
}

inline void setFieldPtr(void* object, const char* field, void* value) {
  collecting([&] { Quen_setField_ptr(object, field, value); });
}

inline int isInstanceOf(void* object, const char* className) {
  return collecting([&] { return Quen_isInstanceOf(object, className); });
}

inline void addToArrayList(void* list, void* element) {
  collecting([&] { quen_collections_ArrayList_add(list, element); });
}

// These two may not collect.

inline void raise(const char* exceptionClass, const char* message) {
  Quen_raise(exceptionClass, message);
}

inline int hasPendingError() { return Quen_hasPendingError(); }

}  // namespace quen::conformance::operations
