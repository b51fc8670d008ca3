#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what is needed, builds, and runs every test: the unit tests under
# AddressSanitizer and UBSan, the stress tests against the sanitizer build,
# the fuzz targets for a bounded time, then all
# unit and end-to-end tests of the normal build through ctest (whose summary
# closes the output).
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh

echo "== formatting"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

echo "== unit tests under AddressSanitizer and UBSan"
cmake -S . -B build-asan -DTEMHOSTD_SANITIZE=ON -DTEMHOSTD_WERROR=ON >/dev/null
cmake --build build-asan -j"$(nproc)"
ctest --test-dir build-asan -L unit --output-on-failure

echo "== stress tests against the sanitizer build: 16 walkers, random SETs"
tests/e2e/run.sh build-asan stress_sanitizer.py

echo "== fuzzing every parser of outside text"
scripts/fuzz.sh 20

echo "== all tests"
scripts/build.sh
ctest --test-dir build --output-on-failure
