#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what is needed, builds twice and runs every test through ctest:
# a clang build with AddressSanitizer and UBSan holds the unit tests, the
# fuzz targets and the stress tests; the end-to-end tests run the daemon of
# the Debian package's own build (gcc, Debian's hardening flags), which the
# packaging checks install. Side by side where they can (ctest -j).
set -eu
cd "$(dirname "$0")/.."
build=build-asan
start=$(date +%s)
step() { echo "== $* ($(($(date +%s) - start)) s in)"; }
scripts/install-deps.sh "$PWD/$build/mibs-base"
# The container trees of the Debian 12 and 13 tests, cached on the machine:
# when missing, they are built meanwhile (downloads and dpkg while the
# compilers have the processors); the tests that need them wait for them,
# and their ctest fixtures report a failed build.
scripts/debian-image.sh bookworm >/dev/null 2>&1 &
scripts/debian-image.sh trixie >/dev/null 2>&1 &
scripts/debian13-tools.sh >/dev/null 2>&1 &

step formatting
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

step "clang build with ASan and UBSan, warnings as errors"
CC=clang CXX=clang++ cmake -S . -B $build -DTEMHOSTD_SANITIZE=ON -DTEMHOSTD_FUZZ=ON \
    -DTEMHOSTD_WERROR=ON -DTEMHOSTD_FUZZ_SECONDS=5 -DTEMHOSTD_STRESS_SECONDS=20 \
    -DTEMHOSTD_E2E_BUILD="$PWD/$build/deb" >/dev/null
cmake --build $build -j"$(nproc)"

step "the package's build (gcc), no warning allowed"
if ! scripts/build-deb.sh $build/deb >$build/deb.log 2>&1 || grep ': warning:' $build/deb.log; then
    cat $build/deb.log
    exit 1
fi

step "all tests"
ctest --test-dir $build -j4 --output-on-failure
step done
