#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The package on a Debian host, in a private copy of it (/usr, /etc, /var
# overlays, loopback only). It installs beside Debian's default snmpd.conf;
# the daemon, started as its unit starts it, serves through snmpd to the
# community meadow the subtree and nothing else; the README's names command
# works without snmp-mibs-downloader; a stop signal gives a status the unit
# counts as success; remove keeps the conffiles; purge leaves nothing behind
# and snmpd, still running, no longer answers meadow.
#
# Usage: tests/packaging/install-purge.sh DEB_DIR   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
if [ "${TEMHOSTD_PKG_TEST_INSIDE:-}" != 1 ]; then
    set -- "$1"/temhostd_*.deb
    [ $# -eq 1 ] && [ -f "$1" ] || { echo "install-purge: want exactly one temhostd_*.deb" >&2; exit 1; }
    export TEMHOSTD_PKG_TEST_INSIDE=1
    exec "$here/../../scripts/in-private-host.sh" "$0" "$(realpath "$1")"
fi

ROOT=1.3.6.1.4.1.32473.11
UNIT=/lib/systemd/system/temhostd.service
DROPIN=/etc/snmp/snmpd.conf.d/temhostd.conf
export MIBS= DEBIAN_FRONTEND=noninteractive
. "$here/../../scripts/agent-probes.sh"
fail() { echo "install-purge: FAIL: $*" >&2; exit 1; }
apt_get() { apt-get -y -q "$@" >/run/apt.log 2>&1 || { cat /run/apt.log; fail "apt-get $*"; }; }
# An object's value through community $1; fails on no answer or no such object.
value() { snmpget -v2c -c "$1" -Oqv -t 1 -r 0 127.0.0.1 "$2" 2>/dev/null | grep -v '^No Such'; }

# /usr becomes an overlay like /etc and /var, its upper layer beside theirs.
mkdir -p /run/.private-host/usr-upper /run/.private-host/usr-work
mount -t overlay overlay \
    -o lowerdir=/usr,upperdir=/run/.private-host/usr-upper,workdir=/run/.private-host/usr-work /usr
# All but package-manager bookkeeping, logs and snmpd's state, which rightly change.
snapshot() {
    find /usr /etc /var -xdev \( -path /var/cache -o -path /var/log -o -path /var/lib/dpkg \
        -o -path /var/lib/apt -o -path /var/lib/snmp -o -path /var/agentx \) -prune -o -print | sort
}
# Of the paths read, those this run wrote (in an upper layer), not the host meanwhile.
ours() { while read -r p; do d=${p#/}; [ ! -e "/run/.private-host/${d%%/*}-upper/${d#*/}" ] || echo "$p"; done; }
master= daemon=
trap 'kill $daemon $master 2>/dev/null || true; wait' EXIT

! dpkg --verify snmpd | grep ' /etc/snmp/snmpd.conf$' || fail "snmpd.conf is not Debian's default"
! dpkg -s snmp-mibs-downloader >/dev/null 2>&1 || fail "snmp-mibs-downloader is there: names must do without"
snapshot >/run/before
apt_get install --no-install-recommends "$1"
l=/usr/libexec/temhostd x=/usr/share/doc/temhostd/examples
ls $l/svcs $l/psrinfo $l/pkginfo $l/modinfo $x/snmp.yml $x/snmp-0.21.yml \
    $x/temhostd-rules.yml $x/temhostd-alerts.yml \
    $x/consoles/temhostd.lib $x/consoles/temhostd-fleet.html $x/consoles/temhostd-host.html \
    $x/zabbix/temhostd_by_snmp.yaml \
    >/dev/null || fail "files missing"
[ "$(stat -c %a:%U:%G $DROPIN)" = 640:root:Debian-snmp ] || fail "the drop-in is not 0640 root:Debian-snmp"
# verify reports problems but still succeeds: any output fails.
out=$(systemd-analyze verify "$UNIT" 2>&1) && [ -z "$out" ] || fail "systemd-analyze verify: $out"
[ -L /etc/systemd/system/multi-user.target.wants/temhostd.service ] || fail "the postinst did not enable the unit"

mkdir -p /run/agentx # the RuntimeDirectory of snmpd's unit
# With the pid file of Debian's init script, by which the postrm finds it without systemd.
$(sed -n 's/^ExecStart=//p' /lib/systemd/system/snmpd.service) -p /run/snmpd.pid >/run/snmpd.log 2>&1 &
master=$!
wait_until value public 1.3.6.1.2.1.1.3.0 || { cat /run/snmpd.log; fail "snmpd did not start"; }
$(sed -n 's/^ExecStart=//p' "$UNIT") &
daemon=$!
wait_until answers $(awk '!/^#/ && NF { print $1 }' "$here/../../scripts/beds/ready-oids") ||
    fail "the daemon's objects do not answer through snmpd"
out=$(snmpwalk -v2c -c meadow -On 127.0.0.1 .1 2>&1) && printf '%s\n' "$out" | grep -q "^\.$ROOT\." &&
    ! printf '%s\n' "$out" | grep '^\.' | grep -qv '^\.1\.3\.6\.1\.4\.1\.32473\.' || fail "meadow's view: $out"

# Step 4 walks with public, which reads the subtree after the drop-in's one-line change.
line=$(sed -n 's/^#   \(view .*\)$/\1/p' $DROPIN)
echo "$line" >>/etc/snmp/snmpd.conf
kill -HUP $master # systemctl reload snmpd
wait_until value public $ROOT.1.3.0 || fail "public cannot read the subtree after: $line"
value meadow $ROOT.1.3.0 >/dev/null || fail "meadow lost when snmpd reread its configuration as Debian-snmp"
cmd=$(zcat /usr/share/doc/temhostd/README.md.gz |
    sed -n '/^## Running beside/,/^## /s/^ \{4,\}\(snmpwalk .* -m .*\)/\1/p')
[ -n "$cmd" ] && zcat /usr/share/man/man8/temhostd.8.gz | sed 's/\\-/-/g' | grep -qxF -- "$cmd" ||
    fail "the man page's EXAMPLES lack the README's step 4: $cmd"
# Every object by the name of its own MIB leaf: one sub-identifier (.0, or
# a table row's index) follows it; more would mean an ancestor's name.
out=$(sh -c "$cmd" 2>&1) && printf '%s\n' "$out" | grep -q '^TEMHOSTD-MIB::vorHoName\.0 = STRING: ' &&
    ! printf '%s\n' "$out" | grep -e Cannot -e ' = ' | grep -qvE '^TEMHOSTD-MIB::\w+\.[0-9]+ = ' ||
    fail "not every object named by its MIB leaf in $cmd: $out"

kill -TERM $daemon
wait $daemon && status=0 || status=$?
daemon=
echo " 0 $(sed -n 's/^SuccessExitStatus=//p' "$UNIT") " | grep -q " $status " ||
    fail "exit status $status after SIGTERM is a failure to the unit"
[ -f /var/sma_snmp/temhostd.conf ] || fail "no persistent file after the stop"

apt_get remove temhostd
for f in $DROPIN /etc/snmp/temhostd.conf; do [ -f $f ] || fail "remove took the conffile $f"; done
[ "$(readlink /etc/systemd/system/temhostd.service)" = /dev/null ] || fail "remove did not mask the unit"
apt_get purge temhostd
sed -i "\\|^$line\$|d" /etc/snmp/snmpd.conf # the test's own line
snapshot >/run/after
changed=$(comm -3 /run/before /run/after | ours)
[ -z "$changed" ] || fail "install and purge left these added or removed: $changed"
wait_until sh -c "snmpget -v2c -c meadow -t 1 -r 0 127.0.0.1 $ROOT.1.3.0 2>&1 | grep -q Timeout" ||
    fail "snmpd still answers meadow after purge"
value public 1.3.6.1.2.1.1.3.0 >/dev/null || fail "snmpd is gone after purge"
echo "install-purge: ok"
