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

mkdir -p /var/tmp
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
cat > /var/tmp/mib3.conf <<'CONF'
pass .1.3.6.1.4.1.32473.3 /bin/sh /var/tmp/mib3.sh
CONF
exec "$here/../scripts/with-agents.sh" --master-conf /var/tmp/mib3.conf "$build" \
    "$build/bin/status_bench" "$rebuilds" "$count"
