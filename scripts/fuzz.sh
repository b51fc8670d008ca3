#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets with clang (ASan and UBSan) in build-fuzz/ and
# runs each for SECONDS (default 20) through ctest (label fuzz). Anything a
# target finds fails the run; the input stays in build-fuzz/tests/fuzz/findings.
# Usage: scripts/fuzz.sh [SECONDS]
set -eu
cd "$(dirname "$0")/.."
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DTEMHOSTD_FUZZ=ON \
    -DTEMHOSTD_FUZZ_SECONDS="${1:-20}" >/dev/null
cmake --build build-fuzz --target fuzzers -j"$(nproc)"
ctest --test-dir build-fuzz -L fuzz --output-on-failure
