#!/bin/sh
# The daemon's idle cost with polling off: CPU time of temhostd and of the
# commands it starts, beside the master agent's own, over the same window.
# Usage: bench/run-cpu-idle.sh [BUILD_DIR] [seconds]   (as root; default 120)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
seconds=${2:-120}
exec "$here/../scripts/in-private-host.sh" "$here/../scripts/with-agents.sh" "$build" \
    "$here/cpu-idle-measure.sh" "$seconds"
