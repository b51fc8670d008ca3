#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what temhostd needs, builds it, and shows its main job: a private
# local master agent (snmpd) with temhostd attached as AgentX subagent, a
# walk of the daemon's subtree printed with the names of TEMHOSTD-MIB (the
# base modules it imports are unpacked into build/mibs-base), then its
# software table with the package's watch list (the agent and its master,
# running) and its first processor averages. Runs in a private copy of this
# host, so nothing on the host is changed or left running.
#
# Usage: sh scripts/demo.sh   (as root; the clone's path may hold blanks)
# The test command runs the job alone against a build it already has:
# scripts/in-private-host.sh scripts/demo.sh --inside BUILD_DIR
set -eu
cd "$(dirname "$0")/.."
case "${1:-}" in
"")
    scripts/install-deps.sh
    scripts/build.sh
    exec scripts/in-private-host.sh "$(pwd)/scripts/demo.sh" --inside "$(pwd)/build" ;;
--inside)
    # As the package leaves the host: its watch list, and temhostd in the
    # package database (snmpd's entry is this host's own).
    cp packaging/temhostd.conf /etc/snmp/temhostd.conf
    dpkg-query -W temhostd >/dev/null 2>&1 || printf '%s\n' "Package: temhostd" \
        "Status: install ok installed" "Architecture: amd64" "Version: 2.3-1" \
        "Description: host agent (this build)" "" >>/var/lib/dpkg/status
    exec scripts/with-agents.sh "$2" "$(pwd)/scripts/demo.sh" --show "$2" ;;
esac

# --show BUILD_DIR, once both agents answer. The base modules sit in the
# build (install-deps.sh, build-deb.sh); each path may hold blanks.
mibdirs="$2/mibs-base:$(pwd)/mibs"
snmpwalk -v2c -c meadow -M "$mibdirs" -m TEMHOSTD-MIB 127.0.0.1 1.3.6.1.4.1.32473.11
echo
echo "== Waiting for the first processor averages (the daemon samples every 10 s; about 20 s) ..."
i=0
cpu1min=1.3.6.1.4.1.32473.11.2.3.1.1.2
until snmpgetnext -v2c -c meadow -Oqv 127.0.0.1 $cpu1min 2>/dev/null | grep -qx '[0-9]*'; do
    i=$((i + 1))
    [ $i -le 60 ] || { echo "no average after 60 s" >&2; exit 1; }
    sleep 1
done
echo
echo "== Software the daemon watches (/etc/snmp/temhostd.conf)"
echo "   Status 1 unknown, 2 running, 3 not running; Type 2 driver, 3 agent, 4 utility, 5 application"
snmptable -v2c -c meadow -M "$mibdirs" -m TEMHOSTD-MIB -Cb -Cw 120 127.0.0.1 vorHoSwVerTable
echo
echo "== Processor busy share, percent (-1: its span has not passed yet)"
snmptable -v2c -c meadow -M "$mibdirs" -m TEMHOSTD-MIB -Cb 127.0.0.1 vorHoCpuUtilTable
echo
echo "A fleet of such hosts behind Prometheus, with console pages: sh scripts/fleet-demo.sh"
