#!/bin/sh
# Runs get_rate_bench against a private master agent with temhostd attached.
# Usage: bench/run-get-rate.sh [BUILD_DIR] [requests-per-object]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
count=${2:-5000}
exec "$here/../scripts/in-private-host.sh" "$here/../scripts/with-agents.sh" "$build" \
    "$build/bin/get_rate_bench" "$count"
