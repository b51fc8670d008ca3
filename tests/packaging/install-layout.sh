#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# cmake --install with the default prefix: the daemon in sbin, its helper
# programs in libexec/temhostd, the manual page, the unit pointing at the
# installed daemon, the snmpd drop-in, the MIB files, and nothing under /var.
#
# Usage: tests/packaging/install-layout.sh BUILD_DIR SOURCE_DIR
set -eu
build=$1
src=$2
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT
DESTDIR=$dest cmake --install "$build" --prefix /usr/local >/dev/null

rc=0
want() {
    [ -e "$dest$1" ] || { echo "install-layout: missing $1"; rc=1; }
}
want /usr/local/sbin/temhostd
for cmd in svcs psrinfo pkginfo modinfo; do want /usr/local/libexec/temhostd/$cmd; done
want /usr/local/share/man/man8/temhostd.8.gz
want /usr/local/lib/systemd/system/temhostd.service
want /etc/snmp/snmpd.conf.d/temhostd.conf
want /etc/snmp/temhostd.conf
for mib in "$src"/mibs/*.txt; do
    [ ! -e "$mib" ] || want /usr/local/share/snmp/mibs/"$(basename "$mib")"
done
grep -qx 'ExecStart=/usr/local/sbin/temhostd -s' "$dest"/usr/local/lib/systemd/system/temhostd.service ||
    { echo "install-layout: the unit does not start the installed daemon"; rc=1; }
[ ! -e "$dest/var" ] || { echo "install-layout: installs under /var"; rc=1; }
[ $rc -ne 0 ] || echo "install-layout: ok"
exit $rc
