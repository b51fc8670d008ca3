#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets with clang (ASan and UBSan) in build-fuzz/ and
# runs each for SECONDS (default 20) from its committed seeds. Anything a
# target finds fails the run; the crashing input is kept in build-fuzz/findings.
# Usage: scripts/fuzz.sh [SECONDS]
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DTEMHOSTD_FUZZ=ON >/dev/null
cmake --build build-fuzz --target fuzzers -j"$(nproc)"
mkdir -p build-fuzz/findings
status=0
for seeds in tests/fuzz/corpus/*/; do
    target=$(basename "$seeds")
    work=$(mktemp -d)
    echo "== $target (${seconds}s)"
    # New inputs go to the scratch corpus; the committed seeds and the unit
    # tests' host fixtures (mount tables, /proc files, dpkg status) seed it.
    if ! "build-fuzz/bin/$target" -max_total_time="$seconds" -print_final_stats=0 \
        -artifact_prefix="build-fuzz/findings/$target-" "$work" "$seeds" tests/fixtures \
        >"build-fuzz/findings/$target.log" 2>&1; then
        tail -n 40 "build-fuzz/findings/$target.log"
        status=1
    else
        grep -E "^#[0-9]+.*DONE" "build-fuzz/findings/$target.log" | tail -n 1 || true
    fi
    rm -rf "$work"
done
exit $status
