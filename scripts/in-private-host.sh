#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs a command as root inside private network and mount namespaces that
# look like this host to it, but whose writes never reach the host: /var,
# /etc, /tmp and /mnt are overlays whose changes land in a tmpfs, /run is a
# fresh tmpfs, and the network holds only the loopback interface. Everything
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
# A fresh /run holds the overlays' upper layers. /tmp and /mnt are overlays
# too rather than fresh tmpfs, so that a checkout or build tree under them
# (a clone in /tmp, say) stays visible at its own path.
mount -t tmpfs -o mode=0755 tmpfs /run
for d in var etc tmp mnt; do
    mkdir -p /run/.private-host/$d-upper /run/.private-host/$d-work
    mount -t overlay overlay \
        -o lowerdir=/$d,upperdir=/run/.private-host/$d-upper,workdir=/run/.private-host/$d-work /$d
done
exec "$@"
