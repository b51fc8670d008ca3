#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Inside a private host (scripts/in-private-host.sh): starts snmpd as AgentX
# master on 127.0.0.1:161 (read-only community "meadow") and temhostd as its
# subagent, runs the given command once both answer, then stops the daemon
# and the master, in that order.
#
# Usage: scripts/with-agents.sh [--master-conf FILE] BUILD_DIR COMMAND [ARG...]
# (FILE: lines added to the master's configuration)
set -eu
extra=/dev/null
if [ "$1" = --master-conf ]; then
    extra=$2
    shift 2
fi
build=$1
shift
export MIBS=
mkdir -p /var/agentx /var/sma_snmp /etc/snmp
{
    cat <<'CONF'
agentaddress udp:127.0.0.1:161
master agentx
rocommunity meadow 127.0.0.1
CONF
    cat "$extra"
} > /etc/snmp/snmpd.conf.new
mv /etc/snmp/snmpd.conf.new /etc/snmp/snmpd.conf

. "$(dirname "$0")/agent-probes.sh"

/usr/sbin/snmpd -f -Lf /var/log/snmpd-master.log -p /run/snmpd.pid &
master=$!
daemon=
# The daemon stops before its master, so it never sees the master vanish.
trap 'if [ -n "$daemon" ]; then kill -TERM $daemon; wait $daemon || true; fi; kill -TERM $master 2>/dev/null || true; wait' EXIT
wait_until answers 1.3.6.1.2.1.1.3.0 || { echo "the master agent did not start" >&2; exit 1; }

"$build/bin/temhostd" &
daemon=$!
# Ready when an object of every module answers through the master.
wait_until answers $(awk '!/^#/ && NF { print $1 }' "$(dirname "$0")/ready-oids") || { echo "temhostd did not answer" >&2; exit 1; }
"$@"
