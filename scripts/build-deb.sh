#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian package temhostd_VERSION_ARCH.deb in build-deb/ (or the
# directory given): a /usr build of the daemon and its command stand-ins
# with Debian's hardening flags, stripped, packed by CPack's DEB generator.
# Prints the package's path last.
#
# Usage: scripts/build-deb.sh [BUILD_DIR]
set -eu
cd "$(dirname "$0")/.."
build=${1:-build-deb}

# Debian's flags, all hardening on (bindnow as well as relro). CMake takes
# no CPPFLAGS, so they go with the compiler flags, as debhelper does it.
# The build type None adds no flags of its own to these.
eval "$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --export=sh)"
CXXFLAGS="$CXXFLAGS $CPPFLAGS"
export CXXFLAGS LDFLAGS

# The package carries the SMIv2 base modules the MIB imports.
sh scripts/base-mibs.sh "$build/mibs-base"
# Only what ships: no tests or benchmarks. A newer compiler's new warning
# must not stop a package build, so no -Werror (the test build keeps it).
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
    -DTEMHOSTD_DEBIAN_PACKAGE=ON -DTEMHOSTD_TESTS=OFF -DTEMHOSTD_WERROR=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
rm -f "$build"/temhostd_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
ls "$(cd "$build" && pwd)"/temhostd_*.deb
