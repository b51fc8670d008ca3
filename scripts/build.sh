#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Configures and builds temhostd in build/ (warnings are errors).
set -eu
cd "$(dirname "$0")/.."
cmake -S . -B build -DTEMHOSTD_WERROR=ON >/dev/null
cmake --build build -j"$(nproc)"
