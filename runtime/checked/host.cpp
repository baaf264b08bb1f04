// The operations that the program defines. The linker binds the module's calls to operations.cpp
// instead (cmake/QuenIoChecked.cmake).

#include "runtime/checked/host.h"

namespace quen::checked::host {

// A macro, since the type of each is that of its operation.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define DEFINE(name, operation) constinit decltype(&::operation) const name = &::operation
DEFINE(runtimeFsPath, Quen_runtimeFsPath);
DEFINE(visiblePathString, Quen_visiblePathString);
DEFINE(allocPathString, Quen_allocPathString);
DEFINE(allocTypedPathObjectFromPath, Quen_allocTypedPathObjectFromPath);
DEFINE(filePathFromObject, Quen_filePathFromObject);
DEFINE(pathHasExplicitWindowsRoot, Quen_pathHasExplicitWindowsRoot);
DEFINE(pathEntryKind, Quen_pathEntryKind);
DEFINE(cachePathEntryKind, Quen_cachePathEntryKind);
DEFINE(pathExists, Quen_pathExists);
DEFINE(allocString, Quen_allocString);
DEFINE(readByteArrayData, Quen_readByteArrayData);
DEFINE(writeByteArrayData, Quen_writeByteArrayData);
DEFINE(hasObjectMagic, hasObjectMagic);
DEFINE(allocObject, Quen_allocObject);
DEFINE(getFieldI64, Quen_getField_i64);
DEFINE(setFieldPtr, Quen_setField_ptr);
DEFINE(isInstanceOf, Quen_isInstanceOf);
DEFINE(addToArrayList, quen_collections_ArrayList_add);
DEFINE(raise, Quen_raise);
DEFINE(hasPendingError, Quen_hasPendingError);
#undef DEFINE

}  // namespace quen::checked::host
