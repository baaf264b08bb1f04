// Property getters and other entry points that only forward to another member.

#include <cstdint>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"

bool __quen_propget_quen_io_Path_exists(void* self) { return quen_io_Path__exists(self); }

void* __quen_propget_quen_io_Path_extension(void* self) { return quen_io_Path_extension(self); }

bool __quen_propget_quen_io_Path_isAbsolute(void* self) { return quen_io_Path__isAbsolute(self); }

bool __quen_propget_quen_io_Path_isDirectory(void* self) { return quen_io_Path__isDirectory(self); }

bool __quen_propget_quen_io_Path_isNormalized(void* self) {
  return quen_io_Path__isNormalized(self);
}

bool __quen_propget_quen_io_Path_isRegular(void* self) { return quen_io_Path__isRegular(self); }

bool __quen_propget_quen_io_Path_isSymlink(void* self) { return quen_io_Path__isSymlink(self); }

std::int64_t __quen_propget_quen_io_Path_lastModified(void* self) {
  return quen_io_Path__lastModified(self);
}

void* __quen_propget_quen_io_Path_name(void* self) { return quen_io_Path_name(self); }

std::int64_t __quen_propget_quen_io_Path_size(void* self) { return quen_io_Path__size(self); }

void* quen_io_Path_name(void* self) {
  return quen_io_Path__pathName(Quen_filePathFromObject(self));
}

void* quen_io_Path_extension(void* self) {
  return quen_io_Path__pathExtension(Quen_filePathFromObject(self));
}

void quen_io_Path_touch(void* self) { quen_io_FilePath_touch(self); }

void* quen_io_Path_resolve__dup2(void* self, void* operand) {
  return quen_io_Path_resolve(self, operand);
}

void* quen_io_Path_resolve__dup3(void* self, void* operand) {
  return quen_io_Path_resolve(self, operand);
}

bool quen_io_FileOutputStream__truncatePath(const char* path) {
  return quen_io_FileWriter__truncatePath(path);
}

void quen_io_FileOutputStream__appendTextPath(const char* path, const char* text) {
  quen_io_FileWriter__appendPath(path, text);
}
