#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# cmake --install under /usr/local, which the package's /usr never shows:
# the unit below the prefix starts the daemon installed there, its helpers
# sit in ../libexec/temhostd where it looks, and the snmpd drop-in and the
# configuration still go to /etc/snmp; nothing goes under /var.
#
# Usage: tests/packaging/install-layout.sh BUILD_DIR
set -eu
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT
DESTDIR=$dest cmake --install "$1" --prefix /usr/local >/dev/null
cd "$dest"
exe=.$(sed -n 's/^ExecStart=\([^ ]*\).*/\1/p' usr/local/lib/systemd/system/temhostd.service)
cmds=$(dirname "$exe")/../libexec/temhostd
ls "$exe" "$cmds"/svcs "$cmds"/psrinfo "$cmds"/pkginfo "$cmds"/modinfo \
    etc/snmp/snmpd.conf.d/temhostd.conf etc/snmp/temhostd.conf >/dev/null
[ ! -e var ] || { echo "install-layout: installs under /var"; exit 1; }
echo "install-layout: ok"
