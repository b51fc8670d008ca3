#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs end-to-end tests in a private copy of this host (see
# scripts/in-private-host.sh); each test then mounts fresh tmpfs on the
# directories the daemon and the master write (conftest.py). The tests get
# a process table of their own too: ps, as the daemon's package checks run
# it, sees no process of another run (a concurrent run's tarnd, say).
#
# Usage: tests/e2e/run.sh BUILD_DIR [pytest arguments...]   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build_dir=$(cd "$1" && pwd)
shift
cd "$here"
exec env TEMHOSTD_BUILD="$build_dir" MIBS= PYTHONDONTWRITEBYTECODE=1 \
    "$here/../../scripts/in-private-host.sh" unshare --pid --mount-proc --kill-child -- \
    /usr/bin/python3 -m pytest -p no:cacheprovider -q "$@"
