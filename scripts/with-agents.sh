#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Inside a private host (scripts/in-private-host.sh): starts snmpd as AgentX
# master on 127.0.0.1:161 (scripts/beds/master-base.conf) and temhostd as its
# subagent, runs the given command once both answer, then stops the daemon
# and the master, in that order. The agent bed (scripts/beds/agent_bed.py) does
# the work.
#
# Usage: scripts/with-agents.sh [--master-conf FILE] BUILD_DIR COMMAND [ARG...]
# (FILE: lines added to the master's configuration)
set -eu
exec /usr/bin/python3 "$(dirname "$0")/beds/agent_bed.py" "$@"
