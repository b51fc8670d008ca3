#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The README's first command, sh scripts/demo.sh, from a clone whose path
# holds a blank: its main job (the build step is the test command's own)
# runs from a link to this tree named "a clone" and against a link to the
# build named "a build". The walk must print the daemon's objects by their
# names in TEMHOSTD-MIB, and the software table must be read by name.
#
# Usage: tests/readme/demo-blank-path.sh SOURCE_DIR BUILD_DIR   (as root)
set -eu
fail() { echo "demo-blank-path: FAIL: $*" >&2; exit 1; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
ln -s "$(realpath "$1")" "$dir/a clone"
ln -s "$(realpath "$2")" "$dir/a build"
clone="$dir/a clone"
out=$("$clone/scripts/in-private-host.sh" "$clone/scripts/demo.sh" --inside "$dir/a build" 2>&1) ||
    fail "the demo's job failed: $out"
printf '%s\n' "$out"
printf '%s\n' "$out" | grep -q '^TEMHOSTD-MIB::vorHoName\.0 = STRING: ' || fail "the walk shows no names of TEMHOSTD-MIB"
! printf '%s\n' "$out" | grep -q 'Cannot find module' || fail "a module was not found"
printf '%s\n' "$out" | grep -Eq '^ +[0-9]+ +[0-9] +[0-9]+ +snmpd ' || fail "the software table shows no master"
echo "demo-blank-path: ok"
