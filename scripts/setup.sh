# Sourced by the commands that build: installs what is missing, quietly, and nothing when nothing is.

BUILD_PACKAGES=(g++ cmake ninja-build pkgconf python3 libcli11-dev nlohmann-json3-dev libreadline-dev)
TEST_PACKAGES=(libgtest-dev binutils man-db groff-base bash fish zsh)
LINT_PACKAGES=(clang clang-tidy clang-format cppcheck)

# The packages among the arguments that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      printf '%s\n' "$package"
  done
}

require_packages() {
  local missing as_root=()
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "No apt here; going on with what is installed. Needed: $*" >&2
    return
  fi
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -gt 0 ] || return 0

  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Install as root first: ${missing[*]}" >&2; return 1; }
    as_root=(sudo)
  fi
  echo "Installing: ${missing[*]}" >&2
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
}

# Runs a command and shows what it printed only when it fails.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 || status=$?
  [ "$status" -eq 0 ] || cat "$log" >&2
  rm -f "$log"
  return "$status"
}

# The C++ files of the project whose names match one of the patterns.
cpp_files() {
  local patterns=(-false) pattern
  for pattern in "$@"; do patterns+=(-o -name "$pattern"); done
  find . -path ./build -prune -o \( "${patterns[@]}" \) -print | sort
}
