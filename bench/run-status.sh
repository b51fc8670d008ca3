#!/bin/sh
# Runs status_bench against a private master agent with temhostd attached
# and a second MIB of the enterprise (number 3) served by the master
# through a pass script, as an installed sibling agent would be.
# Usage: bench/run-status.sh [BUILD_DIR] [rebuilds] [requests-per-object]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
rebuilds=${2:-200}
count=${3:-500}

if [ "${TEMHOSTD_PRIVATE_HOST:-}" != 1 ]; then
    exec "$here/../scripts/in-private-host.sh" "$0" "$build" "$rebuilds" "$count"
fi

export MIBS=
mkdir -p /var/agentx /var/sma_snmp /etc/snmp /var/tmp
cat > /var/tmp/mib3.sh <<'SCRIPT'
#!/bin/sh
[ "$1" = "-g" ] || exit 0
case "$2" in
.1.3.6.1.4.1.32473.3.1.3.0) v=2 ;;
.1.3.6.1.4.1.32473.3.1.1.0) v=4 ;;
.1.3.6.1.4.1.32473.3.1.2.0) v=1 ;;
*) exit 0 ;;
esac
printf '%s\ninteger\n%s\n' "$2" "$v"
SCRIPT
cat > /etc/snmp/snmpd.conf <<'CONF'
agentaddress udp:127.0.0.1:161
master agentx
rocommunity meadow 127.0.0.1
pass .1.3.6.1.4.1.32473.3 /bin/sh /var/tmp/mib3.sh
CONF

wait_until() {
    i=0
    until "$@" >/dev/null 2>&1; do
        i=$((i + 1))
        [ $i -le 100 ] || return 1
        sleep 0.2
    done
}
answers() {
    out=$(snmpget -v2c -c meadow -t 1 -r 0 127.0.0.1 "$@" 2>&1) || return 1
    ! printf '%s\n' "$out" | grep -q "No Such Object"
}

/usr/sbin/snmpd -f -Lf /var/log/snmpd-master.log -p /run/snmpd.pid &
master=$!
daemon=
trap 'if [ -n "$daemon" ]; then kill -TERM $daemon; wait $daemon || true; fi; kill -TERM $master; wait' EXIT
wait_until answers 1.3.6.1.2.1.1.3.0 || { echo "the master agent did not start" >&2; exit 1; }
"$build/bin/temhostd" &
daemon=$!
wait_until answers $(sed -e 's/#.*//' "$here/../scripts/ready-oids" | awk 'NF { print $1 }') || { echo "temhostd did not answer" >&2; exit 1; }
"$build/bin/status_bench" "$rebuilds" "$count"
