#!/bin/sh
# Software table at its limit: a private host whose package database holds
# 100 recognised packages, 30 of them with a daemon to look for (10 of those
# running: the daemon itself). Times refresh_SwverLoad_CB, then compares a
# walk of vorHoSwVerTable through the master with a walk of the master's
# own hrSWInstalledTable, per varbind.
# Usage: bench/run-sw-walk.sh [BUILD_DIR]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
exec "$here/../scripts/in-private-host.sh" sh -c '
    db=/var/lib/dpkg/status
    : > $db
    pkg() {
        printf "Package: %s\nStatus: install ok installed\nMaintainer: bench <bench@localhost>\nArchitecture: amd64\n" "$1" >> $db
        printf "Version: 1.%s-2024.01.01\nDescription: %s\n\n" "$2" "$3" >> $db
    }
    i=10
    while [ $i -lt 20 ]; do
        pkg KYQtem$i $i "agent, runs as temhostd"
        pkg KYQsorrel$i $i "utility, daemon kyqsorreld not running"
        pkg KYQwisp$i $i "application, daemon kywispd not running"
        i=$((i + 1))
    done
    i=10
    while [ $i -lt 80 ]; do
        pkg KYQvane$i $i "utility without a daemon"
        i=$((i + 1))
    done
    exec "$1/../scripts/with-agents.sh" "$2" "$1/sw-walk-compare.sh" "$2"
' sh "$here" "$build"
