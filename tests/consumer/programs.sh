#!/usr/bin/env bash
# Builds and runs programs of other projects against an installed module, for which run.sh and the Debian
# package's tests start it: programs.sh PREFIX LIBDIR [COMPILER [FLAGS]]
set -euo pipefail
prefix=${1:?usage: programs.sh PREFIX LIBDIR [COMPILER [FLAGS]]} libdir=$2 compiler=${3:-c++} flags=${4:-}
cd "$(dirname "$0")"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() { printf '%s\n' "$*" >&2; exit 1; }

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

echo "== The conformance kit, with the small runtime"
met=$("$scratch/consumer/small_runtime") || fail "The kit printed: $met"
[[ $met == *" requirements, 0 not met"* && $met != *skipped* ]] || fail "The kit printed: $met"

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
