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
compiler=$(cached CMAKE_CXX_COMPILER)
flags=$(cached CMAKE_CXX_FLAGS)

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

# Each program prints the same.
expected=$'b/ 1\nIOException: Cannot open file'
run_program() {
  local printed
  echo "== $1"
  printed=$("$2")
  [ "$printed" = "$expected" ] || fail "$1 printed: $printed"
}

cmake -S . -B "$scratch/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$scratch/consumer"
run_program "CMake, shared" "$scratch/consumer/shared"
run_program "CMake, static" "$scratch/consumer/static"
run_program "CMake, checked" "$scratch/consumer/checked"
run_program "CMake, checked static" "$scratch/consumer/checked_static"

echo "== The checked library in place of the module"
used=$(LD_LIBRARY_PATH="$prefix/$libdir/quen_io_checked" ldd "$scratch/consumer/shared")
[[ $used == *"$libdir/quen_io_checked/libquen_io.so"* ]] || fail "The loader took: $used"

if [[ $flags != *-fsanitize* ]]; then  # a sanitizer has to be loaded first
  printed=$(python3 -c 'import ctypes, sys; ctypes.CDLL(sys.argv[1]).main()' "$scratch/consumer/libextension.so")
  [ "$printed" = "$expected" ] || fail "The loaded module printed: $printed"
fi

echo "== A host with operations of its own, and the parts"
for program in parts_io parts_io_static; do
  printed=$("$scratch/consumer/$program")
  [ "$printed" = $'b/ 10 directory\nIOException: Cannot open file' ] || fail "$program printed: $printed"
done

echo "== The list of entry points"
bound=$("$scratch/consumer/bindings") || fail "The two lists differ."
[[ $bound == *"void* quen_io_Path_resolve(void* self, void* operand) Path.resolve(self, operand)"* ]] || fail "$bound"

echo "== The conformance kit, with the program to start from as it stands"
unmet=$("$scratch/consumer/conformance") && fail "A runtime that makes no objects passes."
[[ $unmet == *" requirements, "*" not met"* ]] || fail "The kit printed: $unmet"

# pkg-config escapes spaces in the prefix for a shell.
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
options=()
eval "options=($flags $(pkg-config --cflags --libs quen_io))"

echo "== pkg-config: the installed sources, with the compiler's default standard and with C++17"
for standard in "" -std=c++17; do
  "$compiler" $standard -Wall -Wextra -Werror "$prefix/share/quen_io/toy_host.cpp" "${options[@]}" \
    -Wl,-rpath,"$prefix/$libdir" -o "$scratch/toy_host"
  [[ $("$scratch/toy_host") == "normal form: notes/today.txt"* ]] || fail "The toy host does not run."
  "$compiler" $standard -Wall -Wextra -Werror -fsyntax-only "${options[@]}" \
    "$prefix/share/quen_io/runtime_conformance.cpp"
done
[[ $(pkg-config --libs quen_io_checked) == *-lquen_io_checked* ]] ||
  fail "pkg-config does not know the checked library."

if [ "$(cached QUEN_IO_DRIVER)" = ON ]; then
  echo "== The driver"
  [ "$("$prefix/bin/quen-io" --version)" = "quen-io $version" ] || fail "That is not the driver."
fi
