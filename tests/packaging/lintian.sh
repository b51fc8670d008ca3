#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The package passes lintian with no error or warning (overrides carry their
# reasons), its programs carry Debian's hardening (PIE, full RELRO, stack
# protector, fortified calls where there are any) and are stripped.
#
# Usage: tests/packaging/lintian.sh DEB_DIR
set -eu
set -- "$1"/temhostd_*.deb
[ $# -eq 1 ] && [ -f "$1" ] || { echo "lintian.sh: want exactly one temhostd_*.deb" >&2; exit 1; }
deb=$1

out=$(lintian --fail-on error,warning "$deb" 2>&1) || {
    printf '%s\n' "$out"
    echo "lintian: errors or warnings"
    exit 1
}
printf '%s\n' "$out" | grep -v 'running with root privileges' || true
echo "lintian: no error or warning"

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
dpkg-deb -x "$deb" "$tree"
rc=0
for f in "$tree"/usr/sbin/* "$tree"/usr/libexec/temhostd/*; do
    name=${f#"$tree"}
    bad=""
    readelf -hW "$f" | grep -q 'Type:.*DYN' || bad="$bad no-PIE"
    readelf -lW "$f" | grep -q GNU_RELRO || bad="$bad no-RELRO"
    readelf -dW "$f" | grep -q 'BIND_NOW\|Flags:.*NOW' || bad="$bad no-BIND_NOW"
    readelf --dyn-syms -W "$f" | grep -q __stack_chk_fail || bad="$bad no-stack-protector"
    # _FORTIFY_SOURCE checks only calls whose buffer size the compiler
    # knows, so some plain calls remain: fortified means some checked ones.
    readelf --dyn-syms -W "$f" | grep -v __stack_chk_fail | grep -Eq ' __[a-z0-9_]+_chk@' ||
        bad="$bad unfortified"
    [ -z "$(readelf -sW "$f" | sed -n '/Symbol table .\.symtab/p')" ] || bad="$bad not-stripped"
    if [ -n "$bad" ]; then
        echo "hardening: $name:$bad"
        rc=1
    else
        echo "hardening: $name ok"
    fi
done
exit $rc
