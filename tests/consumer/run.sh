#!/usr/bin/env bash
# Installs a built module, moves the installed tree, and builds and runs programs of other projects
# against it: run.sh BUILD
set -euo pipefail
build=$(realpath -- "${1:?usage: run.sh BUILD}")
cd "$(dirname "$0")"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The value of a CMake cache variable of the build.
cached() { sed -n "s/^$1:[^=]*=//p" "$build/CMakeCache.txt"; }

fail() { printf '%s\n' "$*" >&2; exit 1; }

cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/moved tree"
prefix="$scratch/moved tree"
libdir=$(cached CMAKE_INSTALL_LIBDIR)
version=$(cached CMAKE_PROJECT_VERSION)
type=$(cached CMAKE_BUILD_TYPE)

echo "== Files"
expected_files() {
  cat <<LIST
include/quen/io/conformance.h
include/quen/io/entry_help.h
include/quen/io/entry_list.h
include/quen/io/entry_points.h
include/quen/io/operations.h
include/quen/io/runtime_parts.h
include/quen/small/host.h
$libdir/cmake/quen_io/quen_io-config-version.cmake
$libdir/cmake/quen_io/quen_io-config.cmake
$libdir/cmake/quen_io/quen_io-conformance_kit-targets-${type,,}.cmake
$libdir/cmake/quen_io/quen_io-conformance_kit-targets.cmake
$libdir/cmake/quen_io/quen_io-runtime_parts-targets-${type,,}.cmake
$libdir/cmake/quen_io/quen_io-runtime_parts-targets.cmake
$libdir/cmake/quen_io/quen_io-small_runtime-targets-${type,,}.cmake
$libdir/cmake/quen_io/quen_io-small_runtime-targets.cmake
$libdir/cmake/quen_io/quen_io-targets-${type,,}.cmake
$libdir/cmake/quen_io/quen_io-targets.cmake
$libdir/libquen_io.so
$libdir/libquen_io.so.${version%%.*}
$libdir/libquen_io.so.$version
$libdir/libquen_io_checked.so
$libdir/libquen_io_checked.so.${version%%.*}
$libdir/libquen_io_checked.so.$version
$libdir/libquen_io_checked_static.a
$libdir/libquen_io_conformance_kit.a
$libdir/libquen_io_static.a
$libdir/libquen_runtime_parts.a
$libdir/libquen_small_runtime.a
$libdir/pkgconfig/quen_io.pc
$libdir/pkgconfig/quen_io_checked.pc
$libdir/quen_io_checked/libquen_io.so.${version%%.*}
share/doc/quen_io/quen_io.spdx.json
share/quen_io/runtime_conformance.cpp
share/quen_io/toy_host.cpp
LIST
  [ "$(cached QUEN_IO_DRIVER)" != ON ] || cat <<LIST
bin/quen-io
share/bash-completion/completions/quen-io
share/fish/vendor_completions.d/quen-io.fish
share/man/man1/quen-io.1.gz
share/zsh/site-functions/_quen-io
LIST
}
diff <(expected_files | sort) <(cd "$prefix" && find . ! -type d -printf '%P\n' | sort) ||
  fail "These files are missing (<) or unexpected (>) in an installed tree."

echo "== No trace of where it was built or installed first"
! grep -rlF -e "$scratch/first" -e "$build" "$prefix/include" "$prefix/$libdir/cmake" \
  "$prefix/$libdir/pkgconfig" || fail "These files name the place."

./programs.sh "$prefix" "$libdir" "$(cached CMAKE_CXX_COMPILER)" "$(cached CMAKE_CXX_FLAGS)"

if [ "$(cached QUEN_IO_DRIVER)" = ON ]; then
  echo "== The driver"
  [ "$("$prefix/bin/quen-io" --version)" = "quen-io $version" ] || fail "That is not the driver."
fi
