#!/bin/sh
# The installed driver: calls an entry point, writes an index, reports texts that are not UTF-8, and has a manual.
set -eu
cd "$AUTOPKGTEST_TMP"

expect() {
  printed=$(eval "$2" 2>&1) || true
  [ "$printed" = "$1" ] || { printf '%s\nprinted: %s\nexpected: %s\n' "$2" "$printed" "$1"; exit 1; }
}

expect "quen-io $(dpkg-query -W -f '${source:Upstream-Version}' quen-io)" "quen-io --version"
expect 'FolderPath "b/" (parent traversal)' "quen-io call Path.normalize 'folder:a/../b/'"
expect "IOException: Cannot open file" "quen-io call FileReader._readAllTextPath /nowhere"

mkdir tree
printf 'text' >tree/well-formed
printf '\377' >tree/malformed
expect "tree/malformed" "quen-io check tree | cut -d: -f1"
expect "malformed well-formed" \
  "quen-io index --quiet -o - tree | jq --raw-output 'select(.kind == \"file\").path' | paste -s -d ' '"

man --where quen-io >/dev/null
