# shellcheck shell=bash disable=SC2034
# Sourced by the commands that build; defines functions that install missing Debian packages. With --help,
# prints the comment at the head of the command and exits.

BUILD_PACKAGES=(g++ cmake ninja-build pkgconf python3 libcli11-dev nlohmann-json3-dev libreadline-dev)
TEST_PACKAGES=(libgtest-dev libfuse3-dev fuse3 binutils man-db groff-base bash fish zsh strace
  python3-dev liblua5.4-dev lua5.4)
LINT_PACKAGES=(clang clang-tidy cppcheck flake8 shellcheck)
PYTHON_COLUMNS=110
# Tests over all texts of a kind or all generated paths: minutes in an instrumented build, which learns nothing
# new from the number of inputs. For ctest -E.
EXHAUSTIVE_TESTS='^(Lead/|Text/ValidateUtf8Within|ValidateUtf8InBlocks|ValidateUtf8\.Agrees|GeneratedPaths|Scopes\.|long\.)'
EXHAUSTIVE_TESTS+='|^PassWellFormed\.StopsAtTheBeginning'
# Also the tests that do not call the module, or only on its usual paths.
LEFT_OUT_OF_COVERAGE="$EXHAUSTIVE_TESTS|^(boundary\.|conformance|consumer|docs|scripts)"

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
    echo "No apt here; continuing with the installed packages. Needed: $*" >&2
    return
  fi
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -gt 0 ] || return 0

  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Install as root first: ${missing[*]}" >&2; return 1; }
    as_root=(sudo)
  fi
  step "Installing ${missing[*]}"
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
}

# Announces a step whose commands are run by quietly.
step() { printf '== %s\n' "$1" >&2; }

# Runs a command and shows its output only if it fails. The output goes to a file that is already unlinked,
# so that an interrupt leaves no temporary file behind.
quietly() {
  local log input output status=0
  trap '' INT TERM HUP
  log=$(mktemp)
  exec {output}>"$log"
  exec {input}<"$log"
  rm -f "$log"
  trap - INT TERM HUP
  "$@" >&"$output" 2>&1 {output}>&- {input}<&- || status=$?
  exec {output}>&-
  [ "$status" -eq 0 ] || cat <&"$input" >&2
  exec {input}<&-
  return "$status"
}

# The C++ files of the project whose names match one of the patterns.
cpp_files() {
  local patterns=(-false) pattern
  for pattern in "$@"; do patterns+=(-o -name "$pattern"); done
  find . -path ./build -prune -o \( "${patterns[@]}" \) -print | sort
}

# The shell and Python scripts of the project, by shebang line or file name.
shell_files() { { find . -name '*.sh' -not -path './build/*'; with_interpreter '(ba)?sh'; } | sort -u; }
python_files() { { find . -name '*.py' -not -path './build/*'; with_interpreter 'python3( -B)?'; } | sort -u; }

with_interpreter() {
  find . \( -path ./build -o -path ./.git \) -prune -o -type f -executable \
    -exec grep --files-with-matches --extended-regexp "^#!.*[/ ]$1\$" {} +
}

case ${1:-} in
  -h | --help)
    (cd "$OLDPWD" && sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0")
    exit 0
    ;;
esac
