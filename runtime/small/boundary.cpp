// Defines the symbols that the module imports by the operations of the small runtime.

#include "quen/io/operations.h"
#include "runtime/small/operations.h"

namespace fs = std::filesystem;
namespace small = quen::small::operations;

fs::path Quen_runtimeFsPath(const char* text) { return small::runtimeFsPath(text); }

void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  return small::allocPathString(path, explicitWindowsRoot);
}

std::string Quen_visiblePathString(const fs::path& path, bool explicitWindowsRoot) {
  return small::visiblePathString(path, explicitWindowsRoot);
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  return small::allocTypedPathObjectFromPath(path, nonFolder, explicitWindowsRoot, parentTraversal);
}

const char* Quen_filePathFromObject(void* object) { return small::filePathFromObject(object); }

bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  return small::pathHasExplicitWindowsRoot(text);
}

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) { return small::pathEntryKind(path); }

void Quen_cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  small::cachePathEntryKind(path, kind);
}

bool Quen_pathExists(const fs::path& path) { return small::pathExists(path); }

void* Quen_allocString(const std::string& bytes) { return small::allocString(bytes); }

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  return small::readByteArrayData(object, bytes, error);
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  return small::writeByteArrayData(object, bytes, count, error);
}

bool hasObjectMagic(void* pointer) { return small::hasObjectMagic(pointer); }

void* Quen_allocObject(const char* className) { return small::allocObject(className); }

std::int64_t Quen_getField_i64(void* object, const char* field) {
  return small::getFieldI64(object, field);
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  small::setFieldPtr(object, field, value);
}

int Quen_isInstanceOf(void* object, const char* className) {
  return small::isInstanceOf(object, className);
}

void quen_collections_ArrayList_add(void* list, void* element) {
  small::addToArrayList(list, element);
}

void Quen_raise(const char* exceptionClass, const char* message) {
  small::raise(exceptionClass, message);
}

int Quen_hasPendingError() { return small::hasPendingError(); }
