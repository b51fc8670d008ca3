#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs end-to-end tests in a private copy of this host (see
# scripts/in-private-host.sh) with a process table of their own, so that the
# daemon's package checks (ps) see no process of a concurrent run.
#
# Usage: tests/e2e/run.sh BUILD_DIR [pytest arguments...]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build_dir=$(cd "$1" && pwd)
shift
cd "$here"
# Artefacts (the fleet test's screenshots) are written through descriptor 3,
# the build directory opened here, outside the private host's overlays.
exec 3<"$build_dir"
exec env TEMHOSTD_BUILD="$build_dir" MIBS= PYTHONDONTWRITEBYTECODE=1 \
    "$here/../../scripts/in-private-host.sh" unshare --pid --mount-proc --kill-child -- \
    /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
