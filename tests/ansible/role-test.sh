#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The Ansible role on a systemd-booted Debian of release SUITE (bookworm or
# trixie): a throwaway overlay of scripts/debian-image.sh SUITE's tree under
# systemd-nspawn, loopback only, driven through the container's namespaces
# (nsenter.py) by that release's own controller: this host's ansible-core
# for bookworm; for trixie, the ansible-core of scripts/debian13-tools.sh's
# tree, whose Python runs only there, so ansible-playbook runs chrooted into
# a private overlay of that tree with /proc, /dev, this repository, the work
# directory and the package bound in at their own paths.
# Check mode on the fresh container changes nothing; the first run installs
# the .deb copied from here (snmpd and procps from the container's apt
# cache), the second changes nothing; another watch list (a unit), file
# system exclusions and log option, checked and then made with the
# configure tag alone, change just those and restart once; a new pass
# phrase makes that user again. Then through the container's systemd: the
# package's daemon runs, the role's SNMPv3 users work (the daemon's own for
# its status array), the unit's row follows the unit, reload keeps the pid
# and reopens the log, a hung mount all the while leaves the watchdog
# quiet, the watchdog kills a stopped daemon and systemd starts it again;
# the confined unit answers as the same daemon unconfined; state absent
# purges, the managers' community is gone, an apt repository installs
# again; no pass phrase reaches the output or a process list, and the
# controller warns of nothing.
#
# Usage: tests/ansible/role-test.sh SUITE DEB_DIR   (as root)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# A failure inside the container shows what its systemd saw.
fail() {
    echo "role-test: FAIL: $*" >&2
    if [ -n "${init:-}" ] && kill -0 "$init" 2>/dev/null; then
        echo "role-test: the container's failed units and last journal lines:" >&2
        ct systemctl --failed --no-legend --no-pager >&2 || true
        ct journalctl -n 80 --no-pager -o short-monotonic >&2 || true
    fi
    exit 1
}
if [ "${TEMHOSTD_ROLE_TEST_INSIDE:-}" != 1 ]; then
    suite=$1
    shift
    set -- "$1"/temhostd_*.deb
    [ $# -eq 1 ] && [ -f "$1" ] || fail "want exactly one temhostd_*.deb"
    # Out here: they may download, and they stay.
    image=$("$here/../../scripts/debian-image.sh" "$suite")
    # The package is built on the older release for both; one built on a
    # newer host (the test command on Debian 13) needs a newer C library
    # than the older release has: nothing to test there (ctest: skipped).
    need=$(dpkg-deb -f "$1" Depends | sed -n 's/.*libc6 (>= \([^)]*\)).*/\1/p')
    have=$(dpkg-query --admindir="$image/var/lib/dpkg" -W -f '${Version}' libc6)
    if [ -n "$need" ] && ! dpkg --compare-versions "$have" ge "$need"; then
        echo "role-test: skipped: the package needs libc6 $need, $suite has $have"
        exit 77
    fi
    case $suite in
    bookworm) tools= ;;
    trixie) tools=$("$here/../../scripts/debian13-tools.sh") ;;
    *) fail "no controller for $suite" ;;
    esac
    export TEMHOSTD_ROLE_TEST_INSIDE=1
    exec "$here/../../scripts/in-private-host.sh" "$0" "$suite" "$(realpath "$1")" "$image" "$tools"
fi
suite=$1
shift

. "$here/../../scripts/agent-probes.sh"
work=$(mktemp -d)
began=$(date +%s)
# Where the time goes, in the log.
at() { echo "role-test: $(($(date +%s) - began)) s: $*"; }
init=
trapd=
# (snmptrapd runs outside the container: the container's end does not end it.)
trap 'kill -KILL ${init:-$nspawn} $trapd 2>/dev/null; wait; rm -rf "$work"' EXIT
systemd-nspawn -D "$2" --volatile=overlay --private-network --bind=/dev/fuse --register=no \
    --keep-unit --boot --console=passive >$work/boot.log 2>&1 &
nspawn=$!
# Its init: the child of nspawn that runs systemd (an earlier one only sets up).
wait_until pgrep -x -P $nspawn systemd || fail "no container: $(cat $work/boot.log)"
init=$(pgrep -x -P $nspawn systemd)
# With the init's own root: where nspawn cannot pivot_root (started from a
# chroot) it stacks the container's root over its namespace's, which
# entering the namespace alone does not reach.
ct() { nsenter -t "$init" -a -r -w "$@"; }
# systemd inside these containers, on a host with the legacy cgroup
# hierarchy, at times fails to start a unit a while after its stop (status
# 219/CGROUP, "Failed to attach to cgroup"): such a start is tried again,
# twice at most; any other failure is the test's. (The role does the same
# for snmpd.) Usage: unit start|restart UNIT
unit() {
    for try in 1 2 3; do
        ct systemctl "$1" "$2" && return 0
        [ "$(ct systemctl show -p ExecMainStatus --value "$2")" = 219 ] || return 1
        echo "role-test: $2 could not attach to its control group; again" >&2
        sleep 2
    done
    return 1
}
wait_until ct test -S /run/systemd/private || fail "no systemd in the container"
# Booted: running, or degraded by a unit that has no part here (seen once:
# systemd-remount-fs on the volatile root), which the log names; what the
# role needs is checked below.
state=$(ct systemctl is-system-running --wait) || true
case $state in
running) ;;
degraded) echo "role-test: booted with failed units:" $(ct systemctl --failed --no-legend --plain | cut -d' ' -f1) ;;
*) fail "the container's systemd: $state $(ct systemctl --failed)" ;;
esac

cat >$work/hosts <<END
$suite ansible_host=$init ansible_connection=nsenter ansible_become=false ansible_python_interpreter=/usr/bin/python3
[temhostd]
$suite
END
cat >$work/vars.yml <<END
temhostd_deb: $1
temhostd_manager_communities: [{community: pasture, source: 127.0.0.1}]
temhostd_snmpv3_users: [{name: fleet, auth_passphrase: fleet-auth-word, priv_passphrase: fleet-priv-word}]
temhostd_local_user: {name: local, auth_passphrase: local-auth-word, priv_passphrase: local-priv-word}
END
# The controller: this host's ansible-core, or the tools tree's ($3), which
# runs in a throwaway overlay of that tree (never changed) and reaches the
# container through the host's /proc like this host's would.
if [ -n "$3" ]; then
    ctl=/run/controller # /run: the private host's own tmpfs
    mkdir -p $ctl/upper $ctl/work $ctl/root
    mount -t overlay overlay -o "lowerdir=$3,upperdir=$ctl/upper,workdir=$ctl/work" $ctl/root
    mount -t proc proc $ctl/root/proc
    mount --rbind /dev $ctl/root/dev
    for d in "$(cd "$here/../.." && pwd)" "$work" "$(dirname "$1")"; do
        mkdir -p "$ctl/root$d" && mount --bind "$d" "$ctl/root$d"
    done
    controller() { chroot $ctl/root "$@"; }
else
    controller() { "$@"; }
fi
export ANSIBLE_CONNECTION_PLUGINS="$here" ANSIBLE_HOME=$work/home ANSIBLE_PIPELINING=1 ANSIBLE_NOCOLOR=1 \
    ANSIBLE_DISPLAY_OK_HOSTS=0 ANSIBLE_DISPLAY_SKIPPED_HOSTS=0
# The example playbook; the titles of the tasks it changed in $work/changed.
play() {
    controller ansible-playbook -i $work/hosts "$here/../../contrib/ansible/site.yml" -e @$work/vars.yml "$@" \
        >$work/out 2>&1 || { cat $work/out; fail "ansible-playbook $*"; }
    cat $work/out >>$work/all
    awk '/^(TASK|RUNNING HANDLER) \[/ { t = $0; sub(/^[^:]*: /, "", t); sub(/\] \**$/, "", t) }
        /^changed:/ && t != last { print last = t }' $work/out >$work/changed
}
priv=fleet-priv-word
v3() { ct snmp$1 -v3 -l authPriv -u fleet -a SHA -A fleet-auth-word -x AES -X $priv -t 2 127.0.0.1 "$2"; }
pasture() { ct snmpget -v2c -c pasture -t 1 -r 0 127.0.0.1 1.3.6.1.2.1.1.3.0 2>&1; }
main_pid() { ct systemctl show -p MainPID --value temhostd; }
starts() { ct journalctl -u temhostd -o cat | grep -c '^Started'; }

play --check --diff
ct test ! -e /etc/snmp || fail "check mode wrote /etc/snmp"
play
[ -s $work/changed ] || fail "the first run changed nothing"
play
grep -q "^$suite *: ok=[0-9]* *changed=0 .*failed=0 " $work/out || { cat $work/out; fail "the second run changed"; }
n=$(starts)
# A real unit of the container's systemd for the watch list (unit-watch-check.sh).
ct sh -c 'cat >/etc/systemd/system/pasture-feeder.service' <<'END'
[Unit]
Description=A service the role test stops and starts
[Service]
Type=exec
ExecStart=/bin/sleep infinity
END
ct systemctl daemon-reload
unit start pasture-feeder || fail "pasture-feeder does not start"
cat >$work/more.yml <<'END'
{temhostd_log: file, temhostd_software_watch: [{kind: utility, prefix: procps, unit: pasture-feeder}],
 temhostd_fs_exclude_types: [tmpfs], temhostd_fs_exclude_paths: ["/run/*"]}
END
# Checked first, then made by the configure part alone: both report the
# two files and one restart; the check restarts nothing.
want="Write the watch list and the local queries' SNMPv3 settings
Set the daemon's options
Restart temhostd"
play --check --tags temhostd_configure -e @$work/more.yml
[ "$(cat $work/changed)" = "$want" ] || fail "a check of a changed watch list and log option: $(cat $work/changed)"
[ "$(starts)" -eq $n ] || fail "the check restarted temhostd"
play --tags temhostd_configure -e @$work/more.yml
[ "$(cat $work/changed)" = "$want" ] || fail "a changed watch list and log option changed: $(cat $work/changed)"
[ "$(starts)" -eq $((n + 1)) ] || fail "temhostd started $(($(starts) - n)) times, not once"
# A new pass phrase for one user: that user alone is made again, in snmpd's
# store, which it writes only while stopped (which stops temhostd too).
sed -n '/fleet/s/-priv-word/&2/p' $work/vars.yml >$work/new.yml
play -e @$work/more.yml -e @$work/new.yml
[ "$(cat $work/changed)" = "Stop snmpd
Forget the old keys of these users
Have snmpd create them as it starts
Start snmpd
Run snmpd and temhostd, now and at boot" ] || fail "a changed pass phrase changed: $(cat $work/changed)"
! v3 get 1.3.6.1.2.1.1.3.0 >/dev/null 2>&1 || fail "fleet's old pass phrase still works"
priv=fleet-priv-word2
at "plays done"

ct systemctl is-active --quiet temhostd || fail "temhostd is not active"
# The one package, built on Debian 12, runs here with this release's
# Net-SNMP library (on 13 libsnmp40t64, which provides libsnmp40).
ct temhostd -v | grep -q Version || fail "temhostd -v: $(ct temhostd -v 2>&1)"
lib=$(ct sh -c 'dpkg -S "$(realpath "$(ldd /usr/sbin/temhostd | awk "/libnetsnmpagent/ { print \$3 }")")"')
case $suite:${lib%%:*} in
bookworm:libsnmp40 | trixie:libsnmp40t64) ;;
*) fail "temhostd on $suite runs with $lib" ;;
esac
v3 get 1.3.6.1.4.1.32473.11.2.2.1.0 | grep -q STRING || fail "fleet does not read vorHoName.0 through the master"
v3 walk 1.3.6.1.4.1.32473.11.2.7.2 | grep -q '"procps"' || fail "the new watch list is not served"
pasture | grep -q Timeticks || fail "the community pasture does not read"
[ "$(ct stat -c %a /etc/snmp/temhostd.conf)" = 600 ] || fail "temhostd.conf holds pass phrases and is not 0600"
# The [snmp] section the daemon's local queries take, as a client's
# configuration, reads through the master with the role's user. (MIBS=:
# with SNMPCONFPATH the tools miss Debian's "mibs :" and parse every MIB
# file they find, into some 400 lines of complaints.)
ct sh -c 'mkdir /run/client && sed "1,/^\[snmp\]/d" /etc/snmp/temhostd.conf >/run/client/snmp.conf &&
    SNMPCONFPATH=/run/client MIBS= snmpget -t 2 127.0.0.1 1.3.6.1.4.1.32473.11.2.2.1.0' | grep -q STRING ||
    fail "the daemon's SNMPv3 settings do not read through the master"

# A hung file system inside the container, from here until the watchdog's
# time has passed over the checks between: the daemon answers and the
# watchdog leaves it alone.
# (Calls on the mount wait until its descriptor, held by the sleep, closes.)
pid=$(main_pid)
ct sh -c 'mkdir -p /mnt/hung && echo $$ >/run/hung.pid && exec 3<>/dev/fuse &&
    mount -t fuse.hung -o fd=3,rootmode=40000,user_id=0,group_id=0 hung /mnt/hung && exec sleep infinity' &
wait_until ct grep -q ' /mnt/hung ' /proc/mounts || fail "no hung mount"
# (The table's first walk since the start: it asks every mount now.)
v3 walk 1.3.6.1.4.1.32473.11.2.4 >/dev/null || fail "the file system walk failed beside a hung mount"
hung=$(date +%s)

. "$here/unit-watch-check.sh"

ct mv /var/log/snmpd.log /var/log/snmpd.log.1
ct systemctl reload temhostd || fail "systemctl reload temhostd"
wait_until ct test -e /var/log/snmpd.log || fail "reload did not reopen the log"
[ "$(main_pid)" = "$pid" ] || fail "reload changed the pid"

left=$((hung + 35 - $(date +%s))) # past WatchdogSec
[ $left -le 0 ] || sleep $left
[ "$(main_pid)" = "$pid" ] || fail "a hung mount got the daemon killed"
v3 get 1.3.6.1.4.1.32473.11.2.2.1.0 | grep -q STRING || fail "no answer beside a hung mount"
ct cat /var/log/snmpd.log.1 /var/log/snmpd.log | grep -q 'File system /mnt/hung does not answer' ||
    fail "the hung mount was not named in the log"
ct sh -c 'kill $(cat /run/hung.pid) && umount -l /mnt/hung'
at "hung mount checks done"

# The watchdog kills a stopped daemon and systemd starts it again: the
# daemon pings at half of what systemd gives it, so a shorter WatchdogSec
# (a runtime drop-in, gone before the confinement checks) tests the same
# in a fifth of the time; the hung mount above had the package's.
ct sh -c 'mkdir -p /run/systemd/system/temhostd.service.d &&
    printf "[Service]\nWatchdogSec=6s\n" >/run/systemd/system/temhostd.service.d/watchdog.conf'
ct systemctl daemon-reload
unit restart temhostd || fail "temhostd does not start with WatchdogSec=6s"
pid=$(main_pid)
ct kill -STOP "$pid"
start=$(date +%s)
until [ "$(main_pid)" != "$pid" ] && ct systemctl is-active --quiet temhostd; do
    [ $(($(date +%s) - start)) -le 30 ] || fail "a stopped daemon was not restarted within 30 s"
    sleep 1
done
ct journalctl -u temhostd | grep -q 'Watchdog timeout' || fail "not killed by the watchdog"
at "restarted $(($(date +%s) - start)) s after SIGSTOP"
ct rm -r /run/systemd/system/temhostd.service.d
ct systemctl daemon-reload

. "$here/confinement-checks.sh"
at "confinement checks done"

# State absent purges and takes the role's users out of snmpd's store;
# the install from the apt repository below makes them again. No process
# list sampled in the container all the while shows a pass phrase.
: >$work/ps
# (It ends too when the container or $work is gone.)
(while [ ! -e $work/ps.stop ] && ct ps -eo args >>$work/ps; do sleep 0.1; done) 2>/dev/null &
sampler=$!
play -e temhostd_state=absent
! ct dpkg -s temhostd >/dev/null 2>&1 || fail "temhostd is still installed"
ct grep -E '^(usmUser|createUser)' /var/lib/snmp/snmpd.conf && fail "state absent left users in snmpd's store"
ct test ! -e /etc/snmp/snmpd.conf.d/temhostd-managers.conf || fail "the drop-in is still there"
pasture | grep -q Timeout || fail "snmpd still answers the community pasture"
ct systemctl is-active --quiet snmpd || fail "snmpd is gone"
# Again, from an apt repository, the only source of this site; the daemon
# queries with the package's community.
mkdir $work/repo
cp "$1" $work/repo
(cd $work/repo && dpkg-scanpackages . >Packages 2>/dev/null)
cp -r $work/repo /proc/$init/root/srv/
ct rm /etc/apt/sources.list
play -e '{"temhostd_deb": "", "temhostd_apt_repository": "deb [trusted=yes] file:/srv/repo ./", "temhostd_local_user": null}'
ct systemctl is-active --quiet temhostd || fail "temhostd from the repository is not active"
[ "$(ct stat -c %a /etc/snmp/temhostd.conf)" = 644 ] || fail "temhostd.conf without pass phrases is not 0644"
touch $work/ps.stop
wait $sampler
[ "$(grep -c . $work/ps)" -gt 100 ] || fail "too few process lists sampled"
! grep -e auth-word -e priv-word $work/ps || fail "a pass phrase in a process list"
! grep -e auth-word -e priv-word $work/all || fail "a pass phrase reached ansible's output"
! grep -A3 -e '\[WARNING\]' -e '\[DEPRECATION WARNING\]' $work/all || fail "ansible-playbook warned"
at ok
