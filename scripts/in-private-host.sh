#!/bin/sh
# Runs a command as root inside private network and mount namespaces that
# look like this host to it, but whose writes never reach the host: /var and
# /etc are overlays whose changes land in a tmpfs, /run and /tmp are fresh
# tmpfs, and the network holds only the loopback interface. Everything
# started inside ends with the namespaces.
#
# Usage: scripts/in-private-host.sh COMMAND [ARG...]
set -eu

if [ "${TEMHOSTD_PRIVATE_HOST:-}" != 1 ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "in-private-host.sh: must run as root (namespaces, mounts)" >&2
        exit 1
    fi
    export TEMHOSTD_PRIVATE_HOST=1
    exec unshare --net --mount --propagation private --fork -- "$0" "$@"
fi

ip link set lo up
mount -t tmpfs -o mode=0755 tmpfs /mnt
for d in var etc; do
    mkdir -p /mnt/$d-upper /mnt/$d-work
    mount -t overlay overlay -o lowerdir=/$d,upperdir=/mnt/$d-upper,workdir=/mnt/$d-work /$d
done
mount -t tmpfs -o mode=0755 tmpfs /run
mount -t tmpfs -o mode=1777 tmpfs /tmp
exec "$@"
