#!/bin/sh
# File system table at scale: mounts N tmpfs file systems (default 500) in a
# private host, then compares a full walk of vorHoFileSysTable through the
# master with a walk of the master's own hrStorageTable over the same
# mounts, per varbind, and times refresh_flist_CB.
# Usage: bench/run-fs-walk.sh [BUILD_DIR] [N]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
count=${2:-500}
exec "$here/../scripts/in-private-host.sh" sh -c '
    i=0
    while [ $i -lt "$2" ]; do
        mkdir -p /mnt/bench/$i && mount -t tmpfs -o size=1m tmpfs /mnt/bench/$i
        i=$((i + 1))
    done
    exec "$1/../scripts/with-agents.sh" "$3" "$1/fs-walk-compare.sh" "$3"
' sh "$here" "$count" "$build"
