#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# A fleet to look at: installs what is needed, builds, and starts N private
# hosts (default 5) with snmpd and temhostd each, one snmp_exporter and one
# Prometheus serving the console pages (scripts/fleet.py), then prints the
# overview's URL on this machine's 127.0.0.1. Ctrl-C stops the fleet; nothing
# is left running, and nothing on the host changes beyond the packages.
# --debian13: Debian 13's Prometheus and exporter (2.53, 0.28, from the tree
# of scripts/debian13-tools.sh, built the first time: a few minutes) rather
# than this host's.
#
# Usage: scripts/fleet-demo.sh [--debian13] [N]   (as root)
set -eu
cd "$(dirname "$0")/.."
debian13=
if [ "${1:-}" = --debian13 ]; then
    debian13=1
    shift
fi
n=${1:-5}
scripts/install-deps.sh
scripts/build.sh
tools=
[ -z "$debian13" ] || tools=$(scripts/debian13-tools.sh)
echo "fleet-demo: starting $n hosts (about 10 s; processor averages show about 20 s later)"
# The fleet lives in namespaces of its own; descriptor 4 keeps this one's
# network, where Prometheus is also served (port 9090, or the next free one).
exec 4</proc/$$/ns/net
scripts/in-private-host.sh unshare --pid --mount-proc --kill-child -- \
    /usr/bin/python3 scripts/fleet.py --hosts "$n" --publish /proc/self/fd/4:9090 \
    --tools "$tools" "$(pwd)/build"
