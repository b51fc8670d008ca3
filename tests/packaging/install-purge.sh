#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The package's life on a Debian host, in a private copy of this host whose
# /usr, /etc and /var are overlays (nothing reaches the host): apt-get
# installs it, the unit verifies and is enabled, Debian's snmpd started as
# its unit starts it, from its default snmpd.conf verbatim plus our drop-in,
# serves the daemon started as our unit starts it; the daemon's own query
# (SNMPv1, community meadow, 127.0.0.1) reads the subtree and nothing else,
# also after snmpd rereads its configuration as its own group; the
# documented one-line change lets "public" walk it; the README's command
# line for names works with no snmp-mibs-downloader; a stop signal ends the
# daemon with a status the unit counts as success; apt-get remove keeps the
# configuration and masks the unit; apt-get purge leaves nothing behind and
# the running snmpd no longer knows the community meadow.
#
# Usage: tests/packaging/install-purge.sh DEB_DIR   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)

if [ "${TEMHOSTD_PKG_TEST_INSIDE:-}" != 1 ]; then
    set -- "$(cd "$1" && pwd)"/temhostd_*.deb
    [ $# -eq 1 ] && [ -f "$1" ] || { echo "install-purge: want exactly one temhostd_*.deb" >&2; exit 1; }
    export TEMHOSTD_PKG_TEST_INSIDE=1
    exec "$here/../../scripts/in-private-host.sh" "$0" "$1"
fi

deb=$1
ready_oids=$(awk '!/^#/ && NF { print $1 }' "$here/../../scripts/ready-oids")
ROOT=1.3.6.1.4.1.32473.11
UNIT=/lib/systemd/system/temhostd.service
export MIBS= DEBIAN_FRONTEND=noninteractive

fail() {
    echo "install-purge: FAIL: $*" >&2
    exit 1
}
step() { echo "== $*"; }

# /usr joins /etc and /var as an overlay whose changes stay in /run.
mkdir -p /run/.pkg-test/usr-upper /run/.pkg-test/usr-work
mount -t overlay overlay \
    -o lowerdir=/usr,upperdir=/run/.pkg-test/usr-upper,workdir=/run/.pkg-test/usr-work /usr
uppers="/usr=/run/.pkg-test/usr-upper /etc=/run/.private-host/etc-upper /var=/run/.private-host/var-upper"

# Everything under /usr, /etc and /var but package-manager bookkeeping and
# logs, which install and purge rightly change.
snapshot() {
    find /usr /etc /var -xdev \( -path /var/cache -o -path /var/log -o -path /var/lib/dpkg \
        -o -path /var/lib/apt -o -path /var/lib/snmp -o -path /var/agentx \) -prune -o -print |
        sort
}
# Of the paths on standard input, those this run wrote (present in an
# upper layer); a concurrent change on the host itself is not ours.
written_here() {
    while IFS= read -r p; do
        for u in $uppers; do
            case $p in "${u%%=*}"/*) [ -e "${u#*=}${p#${u%%=*}}" ] && echo "$p" ;; esac
        done
    done
}

. "$here/../../scripts/agent-probes.sh"
# Every module registered, and the daemon's own kind of query (SNMPv1,
# community meadow) reads its condition object.
daemon_query_answers() {
    answers $ready_oids && snmpget -v1 -c meadow -t 1 -r 0 127.0.0.1 $ROOT.1.3.0 >/dev/null 2>&1
}
public_walk_shows_subtree() {
    snmpwalk -v2c -c public -On -t 1 -r 0 127.0.0.1 $ROOT | grep -q "^\.$ROOT\."
}

master=
daemon=
trap 'for p in $daemon $master; do kill -TERM $p 2>/dev/null || true; done; wait' EXIT

step "Debian's default snmpd.conf, verbatim"
conf_md5=$(dpkg-query -W -f='${Conffiles}\n' snmpd | awk '$1 == "/etc/snmp/snmpd.conf" { print $2 }')
[ "$(md5sum </etc/snmp/snmpd.conf | cut -d' ' -f1)" = "$conf_md5" ] ||
    fail "/etc/snmp/snmpd.conf differs from the one snmpd shipped"
grep -q '^master  *agentx' /etc/snmp/snmpd.conf || fail "Debian's snmpd.conf lacks master agentx"
! dpkg-query -W -f='${db:Status-Status}\n' snmp-mibs-downloader 2>/dev/null | grep -qx installed ||
    fail "snmp-mibs-downloader is installed: the names test needs a host without it"

snapshot >/run/.pkg-test/before

step "apt-get install"
apt-get install -y -q --no-install-recommends "$deb" >/run/.pkg-test/install.log 2>&1 ||
    { cat /run/.pkg-test/install.log; fail "apt-get install"; }
dpkg-query -W -f='${db:Status-Status}\n' temhostd | grep -qx installed || fail "not installed"
dpkg -L temhostd >/run/.pkg-test/files
for f in /usr/sbin/temhostd /usr/libexec/temhostd/svcs /usr/libexec/temhostd/psrinfo \
    /usr/libexec/temhostd/pkginfo /usr/libexec/temhostd/modinfo \
    /usr/share/man/man8/temhostd.8.gz $UNIT /etc/snmp/snmpd.conf.d/temhostd.conf \
    /usr/share/doc/temhostd/examples/snmp.yml /usr/share/doc/temhostd/examples/temhostd-rules.yml \
    /usr/share/doc/temhostd/examples/temhostd-alerts.yml; do
    grep -qx "$f" /run/.pkg-test/files || fail "$f is not in the package"
    [ -e "$f" ] || fail "$f is not installed"
done
! grep -q '^/var' /run/.pkg-test/files || fail "the package installs under /var"
[ "$(man -w temhostd)" = /usr/share/man/man8/temhostd.8.gz ] || fail "man does not find temhostd(8)"
[ "$(stat -c %a:%G /etc/snmp/snmpd.conf.d/temhostd.conf)" = 640:Debian-snmp ] ||
    fail "the drop-in is not 0640, group Debian-snmp"

step "unit verified and enabled"
# verify reports unknown keys and bad values but still succeeds: any
# output is a failure.
out=$(systemd-analyze verify "$UNIT" 2>&1) && [ -z "$out" ] || fail "systemd-analyze verify: $out"
[ "$(readlink /etc/systemd/system/multi-user.target.wants/temhostd.service)" = "$UNIT" ] ||
    fail "the postinst did not enable the unit"

step "snmpd as its unit starts it, the daemon as ours starts it"
snmpd_cmd=$(sed -n 's/^ExecStart=//p' /lib/systemd/system/snmpd.service)
mkdir -p /run/agentx # the snmpd unit's RuntimeDirectory
# With the pid file of Debian's init script, by which the postrm finds it
# where systemd does not run (as here).
$snmpd_cmd -p /run/snmpd.pid >/run/.pkg-test/snmpd.log 2>&1 &
master=$!
wait_until snmpget -v2c -c public -t 1 -r 0 127.0.0.1 1.3.6.1.2.1.1.3.0 ||
    { cat /run/.pkg-test/snmpd.log; fail "snmpd did not start"; }
daemon_cmd=$(sed -n 's/^ExecStart=//p' "$UNIT")
$daemon_cmd &
daemon=$!
wait_until daemon_query_answers || fail "the subtree does not answer the daemon's own query"

step "community meadow reads the enterprise subtree and nothing else"
snmpwalk -v2c -c meadow -On 127.0.0.1 $ROOT | grep -q "^\.$ROOT\." || fail "meadow cannot walk"
out=$(snmpget -v1 -c meadow -t 1 -r 0 127.0.0.1 1.3.6.1.2.1.1.1.0 2>&1) &&
    fail "meadow reads sysDescr: $out"
out=$(snmpwalk -v2c -c public -On 127.0.0.1 $ROOT 2>&1)
printf '%s\n' "$out" | grep -q "No more variables left in this MIB View" ||
    fail "public sees the subtree before the change: $out"

step "the documented one-line change lets public walk the subtree"
line=$(sed -n 's/^#   \(view .*\)$/\1/p' /etc/snmp/snmpd.conf.d/temhostd.conf)
[ -n "$line" ] || fail "the drop-in does not show the one-line change"
zcat /usr/share/man/man8/temhostd.8.gz | grep -qxF "$line" || fail "the man page shows another line"
echo "$line" >>/etc/snmp/snmpd.conf
kill -HUP $master # systemctl reload snmpd
wait_until public_walk_shows_subtree || fail "public cannot walk the subtree after: $line"
daemon_query_answers || fail "meadow lost when snmpd reread its configuration as Debian-snmp"

step "README step 4 and the man page's EXAMPLES: names on stock Debian"
readme_cmd=$(zcat /usr/share/doc/temhostd/README.md.gz | awk '/^## / { on = ($0 == "## Running beside an existing snmpd") }
    on && /^ +snmpwalk .* -m / { sub(/^ +/, ""); print; exit }')
zcat /usr/share/man/man8/temhostd.8.gz | sed 's/\\-/-/g' | grep -qxF -- "$readme_cmd" ||
    fail "the man page's EXAMPLES lack the README's: $readme_cmd"
out=$(sh -c "$readme_cmd" 2>&1) || fail "$readme_cmd: $out"
printf '%s\n' "$out" | grep -q '^TEMHOSTD-MIB::vorHoName\.0 = STRING: ' && ! printf '%s\n' "$out" | grep -q 'Cannot' ||
    fail "no names from $readme_cmd: $out"

step "a stop signal ends the daemon with a status the unit counts as success"
# Idle, as a stop usually finds it: a signal that lands while a request is
# being handled ends it with that call's event count instead (see
# temhostd(8), EXIT STATUS).
sleep 1
kill -TERM $daemon
status=0
wait $daemon || status=$?
daemon=
success=$(sed -n 's/^SuccessExitStatus=//p' "$UNIT")
case " 0 $success " in *" $status "*) ;; *) fail "exit status $status after SIGTERM is a failure to the unit" ;; esac
[ -f /var/sma_snmp/temhostd.conf ] || fail "no persistent file after the stop"

step "apt-get remove keeps the configuration and masks the unit"
apt-get remove -y -q temhostd >/run/.pkg-test/remove.log 2>&1 ||
    { cat /run/.pkg-test/remove.log; fail "apt-get remove"; }
[ ! -e /usr/sbin/temhostd ] || fail "the daemon is left after remove"
[ -f /etc/snmp/snmpd.conf.d/temhostd.conf ] || fail "remove took the snmpd drop-in (a conffile)"
[ "$(readlink /etc/systemd/system/temhostd.service)" = /dev/null ] || fail "remove did not mask the unit"

step "apt-get purge"
apt-get purge -y -q temhostd >/run/.pkg-test/purge.log 2>&1 ||
    { cat /run/.pkg-test/purge.log; fail "apt-get purge"; }
! dpkg-query -W -f='${db:Status-Status}\n' temhostd 2>/dev/null | grep -qvx not-installed ||
    fail "still known to dpkg"
while IFS= read -r f; do
    [ -d "$f" ] || [ ! -e "$f" ] || fail "$f is left after purge"
done </run/.pkg-test/files
# The persistent file is the daemon's; the snmpd.conf line is the test's own.
sed -i "\\|^$line\$|d" /etc/snmp/snmpd.conf
snapshot >/run/.pkg-test/after
left=$(comm -13 /run/.pkg-test/before /run/.pkg-test/after | written_here)
[ -z "$left" ] || fail "left after purge: $left"
gone=$(comm -23 /run/.pkg-test/before /run/.pkg-test/after | written_here)
[ -z "$gone" ] || fail "removed although not ours: $gone"
# Still running, snmpd answers public but drops meadow's requests unanswered.
out=$(snmpget -v2c -c meadow -t 1 -r 0 127.0.0.1 $ROOT.1.3.0 2>&1) && fail "meadow answered after purge: $out"
snmpget -v2c -c public -t 1 -r 0 127.0.0.1 1.3.6.1.2.1.1.3.0 >/dev/null || fail "snmpd gone after purge"
echo "install-purge: ok"
