#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# smilint at level 6 prints nothing about the MIB but the warnings that
# smilint-accepted lists by tag, each with its reason. smilint exits 0 even
# on errors, so its output is what is judged; -c /dev/null keeps the host's
# configuration (preloads, search path) out.
#
# Usage: tests/mib/smilint-gate.sh BASE_MIB_DIR MIB_FILE
set -eu
ignore=$(sed -n 's/^\([a-z0-9-]\{1,\}\) .*/-i \1/p' "$(dirname "$0")/smilint-accepted")
out=$(SMIPATH="$1:$(dirname "$2")" smilint -c /dev/null -l 6 $ignore "$2" 2>&1)
[ -z "$out" ] || { printf 'smilint reports:\n%s\n' "$out"; exit 1; }
echo "smilint: clean but for the accepted: $ignore"
