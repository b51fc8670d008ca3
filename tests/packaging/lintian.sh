#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# lintian finds no error or warning in the .deb (overrides carry their
# reasons) and no hardening tag at any level: PIE, full RELRO, BIND_NOW and
# fortified calls, and stripped (an error). Lintian does not look for the
# stack protector; readelf does.
#
# Usage: tests/packaging/lintian.sh DEB_DIR
set -eu
set -- "$1"/temhostd_*.deb
[ $# -eq 1 ] && [ -f "$1" ] || { echo "lintian.sh: want exactly one temhostd_*.deb" >&2; exit 1; }
out=$(lintian --display-info --fail-on error,warning "$1" 2>&1) &&
    ! printf '%s\n' "$out" | grep -q hardening- || { printf '%s\n' "$out"; exit 1; }
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
dpkg-deb -x "$1" "$tree"
for f in "$tree"/usr/sbin/* "$tree"/usr/libexec/temhostd/* "$tree"/usr/lib/nagios/plugins/*; do
    readelf --dyn-syms -W "$f" | grep -q __stack_chk_fail || { echo "no stack protector: $f"; exit 1; }
done
echo "lintian: ok"
