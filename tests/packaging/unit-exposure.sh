#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The built unit's exposure, as systemd rates it offline, stays at or below
# the level it has reached, and the unit sets nothing that gives the daemon
# a namespace of its own: a mount namespace alone changes its mount table,
# the others cut it off from the host it describes.
#
# Usage: tests/packaging/unit-exposure.sh UNIT_FILE   (as root)
set -eu
unit=$1
# 3.9: what confinement without a mount namespace reaches (temhostd(8)).
threshold=39
# systemd-analyze names the unit after the file; a copy in a private
# directory keeps a blank in the build path out of its way.
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cp "$unit" "$dir/temhostd.service"
systemd-analyze security --offline=yes --threshold=$threshold "$dir/temhostd.service" >"$dir/out" 2>&1 || {
    cat "$dir/out"
    echo "unit-exposure: exposure above $threshold/10"
    exit 1
}
bad=$(grep -E '^(ProtectSystem|ProtectHome|PrivateTmp|PrivateDevices|PrivateMounts|ProtectHostname|ProtectKernelTunables|ProtectKernelModules|ProtectKernelLogs|ProtectControlGroups|ProtectProc|ProcSubset|ReadOnlyPaths|ReadWritePaths|InaccessiblePaths|TemporaryFileSystem|BindPaths|BindReadOnlyPaths|RootDirectory|RootImage|MountAPIVFS|PrivateNetwork|PrivateUsers|PrivateIPC|NetworkNamespacePath)=' "$unit" || true)
[ -z "$bad" ] || { echo "unit-exposure: a namespace of the daemon's own: $bad"; exit 1; }
echo "unit-exposure: ok, $(sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\).*/\1/p' "$dir/out")"
