#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The MIB gate: smilint at level 6 must print nothing but the warnings
# accepted by tag in smilint-accepted. smilint exits 0 even on errors, so
# its output is what is judged.
#
# Usage: tests/mib/smilint-gate.sh BASE_MIB_DIR MIB_FILE...
set -eu
here=$(cd "$(dirname "$0")" && pwd)
base=$1
shift
command -v smilint >/dev/null || { echo "smilint missing: run scripts/install-deps.sh" >&2; exit 1; }
[ -s "$base/SNMPv2-SMI.txt" ] || { echo "base MIB modules missing in $base: run scripts/install-deps.sh" >&2; exit 1; }

accepted=$(sed -e 's/#.*//' "$here/smilint-accepted" | awk 'NF { print $1 }')
status=0
for mib in "$@"; do
    dir=$(cd "$(dirname "$mib")" && pwd)
    # -c /dev/null: no host configuration (its preloads and search path).
    out=$(SMIPATH="$base:$dir" smilint -c /dev/null -l 6 -m "$mib" 2>&1)
    rejected=$(printf '%s\n' "$out" | while IFS= read -r line; do
        [ -n "$line" ] || continue
        tag=$(printf '%s\n' "$line" | sed -n 's/^.*: {\([a-z0-9-]*\)} warning: .*/\1/p')
        if [ -n "$tag" ] && printf '%s\n' "$accepted" | grep -qx -- "$tag"; then
            continue
        fi
        printf '%s\n' "$line"
    done)
    if [ -n "$rejected" ]; then
        echo "FAIL $mib: smilint reports:" >&2
        printf '%s\n' "$rejected" >&2
        status=1
    else
        echo "ok $mib ($(printf '%s\n' "$out" | grep -c . || true) accepted warnings)"
    fi
done
exit $status
