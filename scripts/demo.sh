#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what temhostd needs, builds it, and shows its main job: a private
# local master agent (snmpd) with temhostd attached as AgentX subagent, and
# a walk of the daemon's subtree printed with the names of TEMHOSTD-MIB
# (the base modules it imports are unpacked into build/mibs-base). Runs in a
# private copy of this host, so nothing on the host is changed or left
# running.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
exec scripts/in-private-host.sh scripts/with-agents.sh "$(pwd)/build" \
    snmpwalk -v2c -c meadow -M "$(pwd)/build/mibs-base:$(pwd)/mibs" -m TEMHOSTD-MIB \
    127.0.0.1 1.3.6.1.4.1.32473.11
