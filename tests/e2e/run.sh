#!/bin/sh
# Runs end-to-end tests inside private network and mount namespaces, so the
# master agent, the daemon and the tools use their real fixed paths while
# the host is never touched: /var and /etc are overlays whose writes land in
# a tmpfs, /run and /tmp are fresh tmpfs. Each test then mounts fresh tmpfs
# on the directories the daemon and the master write (see conftest.py).
#
# Usage: tests/e2e/run.sh BUILD_DIR [pytest arguments...]   (as root)
set -eu

if [ "${1:-}" != "--inside" ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "run.sh: end-to-end tests need root (namespaces, mounts)" >&2
        exit 1
    fi
    exec unshare --net --mount --propagation private -- "$0" --inside "$@"
fi
shift
build_dir=$(cd "$1" && pwd)
shift
here=$(cd "$(dirname "$0")" && pwd)

ip link set lo up
mount -t tmpfs -o mode=0755 tmpfs /mnt
for d in var etc; do
    mkdir -p /mnt/$d-upper /mnt/$d-work
    mount -t overlay overlay -o lowerdir=/$d,upperdir=/mnt/$d-upper,workdir=/mnt/$d-work /$d
done
mount -t tmpfs -o mode=0755 tmpfs /run
mount -t tmpfs -o mode=1777 tmpfs /tmp

export TEMHOSTD_BUILD="$build_dir" MIBS= PYTHONDONTWRITEBYTECODE=1
cd "$here"
exec /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
