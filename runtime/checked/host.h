// The host's own operations, under names that differ from those of the checking ones in
// operations.cpp. quen/io/operations.h documents each.
#pragma once

#include "quen/io/operations.h"

namespace quen::checked::host {

extern decltype(&::Quen_runtimeFsPath) const runtimeFsPath;
extern decltype(&::Quen_visiblePathString) const visiblePathString;
extern decltype(&::Quen_allocPathString) const allocPathString;
extern decltype(&::Quen_allocTypedPathObjectFromPath) const allocTypedPathObjectFromPath;
extern decltype(&::Quen_filePathFromObject) const filePathFromObject;
extern decltype(&::Quen_pathHasExplicitWindowsRoot) const pathHasExplicitWindowsRoot;
extern decltype(&::Quen_pathEntryKind) const pathEntryKind;
extern decltype(&::Quen_cachePathEntryKind) const cachePathEntryKind;
extern decltype(&::Quen_pathExists) const pathExists;
extern decltype(&::Quen_allocString) const allocString;
extern decltype(&::Quen_readByteArrayData) const readByteArrayData;
extern decltype(&::Quen_writeByteArrayData) const writeByteArrayData;
extern decltype(&::hasObjectMagic) const hasObjectMagic;
extern decltype(&::Quen_allocObject) const allocObject;
extern decltype(&::Quen_getField_i64) const getFieldI64;
extern decltype(&::Quen_setField_ptr) const setFieldPtr;
extern decltype(&::Quen_isInstanceOf) const isInstanceOf;
extern decltype(&::quen_collections_ArrayList_add) const addToArrayList;
extern decltype(&::Quen_raise) const raise;
extern decltype(&::Quen_hasPendingError) const hasPendingError;

}  // namespace quen::checked::host
