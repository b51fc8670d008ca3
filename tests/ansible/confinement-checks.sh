# SPDX-License-Identifier: Apache-2.0
# Sourced by role-test.sh once the role has set the daemon up: the package's
# confined unit against the same daemon unconfined, on the same container.
# Uses role-test.sh's ct, unit, fail, $work, $init and $priv.
#
# With the confined unit: a process of another user known only by its
# executable (its command name is cut at 15 characters), a kernel module
# check, a tmpfs mounted below another user's 0700 directory, the system
# role SET, stored and read back after a restart, and a ps that never ends
# (killed with what it started). Then a walk of the whole subtree from the
# confined unit equals one from a transient unit that runs the same command
# line without any confinement; the volatile columns keep only their type:
# file systems' used MB, percentage and used file nodes, the processors'
# averages, the free physical and paging memory and the start time
# (vorHoConfigChangedDate). Traps reach a destination on another loopback
# address (snmptrapd there). No denied system call
# (status=31/SYS) in the journal, no restart.

sub=1.3.6.1.4.1.32473.11
# The command name is "temhostd-watche": only the executable's name matches.
long=temhostd-watched-helper
mod=$(ct sh -c 'head -n1 /proc/modules 2>/dev/null | cut -d" " -f1')
since=$(ct date '+%Y-%m-%d %H:%M:%S')
ct sh -c "cp /bin/sleep /usr/local/bin/$long && mkdir -m 0700 /srv/locked && chown nobody /srv/locked &&
    mkdir /srv/locked/inner && mount -t tmpfs -o size=3m confined-tmpfs /srv/locked/inner" ||
    fail "setting up the confinement checks"
ct setpriv --reuid=nobody --regid=nogroup --clear-groups /usr/local/bin/$long infinity &
# (Without the unit check's exclusions, which leave out every tmpfs.)
ct sh -c "sed -i -e '1i softwareWatch agent temhostd process temhostd\\
softwareWatch application snmpd process snmpd\\
softwareWatch utility procps process $long\\
softwareWatch driver systemd module ${mod:-none}' -e '/^softwareWatch/d' -e '/^fsExclude/d' \\
    /etc/snmp/temhostd.conf"
printf 'trap2sink 127.0.0.2:1162 tests\nrwcommunity tests 127.0.0.1 .%s.2\n' $sub |
    ct sh -c 'cat >/etc/snmp/snmpd.conf.d/zz-confinement.conf'
echo 'disableAuthorization yes' >$work/trapd.conf
MIBS= nsenter -t "$init" -n /usr/sbin/snmptrapd -f -C -c $work/trapd.conf -Lf $work/traps.log -On \
    udp:127.0.0.2:1162 &
trapd=$!
wait_until grep -q NET-SNMP $work/traps.log || fail "no snmptrapd on 127.0.0.2"
ct systemctl reload snmpd
unit restart temhostd || fail "the confined daemon does not start: $(ct journalctl -u temhostd | tail)"

set_() { ct snmpset -v2c -c tests -t 2 127.0.0.1 "$@" >/dev/null || fail "SET $*"; }
# The system role: kept in the persistent file, read back by the next start.
set_ $sub.2.2.6.0 s confined-role

vw() { ct snmpwalk -On -v3 -l authPriv -u fleet -a SHA -A fleet-auth-word -x AES -X $priv -t 2 127.0.0.1 "$1"; }
# The daemon's log, in a file (-l) or the journal.
logs() { ct sh -c 'cat /var/log/snmpd.log 2>/dev/null; journalctl -u temhostd -o cat'; }
# The walk once the processors' one-minute averages are there (-1 before,
# for about 20 s).
walk() {
    i=0
    until vw $sub.2.3.1.1.2 >$work/avg && grep -q INTEGER $work/avg && ! grep -q 'INTEGER: -1' $work/avg; do
        i=$((i + 1))
        [ $i -le 60 ] || fail "no processor averages"
        sleep 1
    done
    vw $sub | sed -E "s/^(\.?$sub\.2\.(4\.1\.1\.[457]|3\.1\.1\.[2345]|13\.[24]|10\.2)\.[0-9.]+ = [A-Za-z0-9-]+:).*/\1/"
}
ct sh -c 'echo "#!/bin/sh
sleep 600 &
wait" >/run/ps && chmod 755 /run/ps && mount --bind /run/ps /bin/ps'
# (The software table is rebuilt at most every 15 s.)
stuck() { vw $sub.2.7.2 >/dev/null && logs | grep -q 'Command /bin/ps .* did not finish within'; }
wait_until stuck || wait_until stuck || fail "a stuck ps was not given up"
ct umount /bin/ps
sleep 2 # the kill's reaping
! ct pgrep -f '^sleep 600' || fail "the stuck ps's sleep outlived it"
walk >$work/confined
grep -q "\"confined-tmpfs On /srv/locked/inner\"" $work/confined ||
    fail "no row for the mount below a 0700 directory"
grep -q "\.2\.4\.1\.1\.3\.[0-9]* = .*: 3$" $work/confined || fail "the mount below a 0700 directory has not 3 MB"
grep -q "confined-role" $work/confined || fail "the SET value is not served"
# Running (2): temhostd, snmpd, the helper known by its executable.
[ "$(grep -c "\.2\.7\.2\.1\.2\.[0-9]* = INTEGER: 2$" $work/confined)" -ge 3 ] ||
    fail "watched processes not running: $(grep '\.2\.7\.2\.1\.[24]\.' $work/confined)"

# The same daemon, same command line, no confinement (the value read back
# from the store the confined one wrote when it stopped).
cmd=$(ct systemctl show -p ExecStart --value temhostd | sed -n 's/.*argv\[\]=\([^;]*\) ;.*/\1/p')
ct systemctl stop temhostd
ct systemd-run -q --unit=temhostd-plain -p Type=notify -p NotifyAccess=main \
    -p SuccessExitStatus=255 $cmd ||
    fail "the unconfined daemon does not start"
walk >$work/plain
ct systemctl stop temhostd-plain
unit start temhostd || fail "the confined daemon does not start again"
diff $work/plain $work/confined || fail "the confined daemon answers otherwise (above: - unconfined, + confined)"

# The operator's text: a trap to 127.0.0.2 after 2 s.
set_ $sub.2.8.1.0 s confined-text
wait_until grep -q confined-text $work/traps.log || fail "no trap on 127.0.0.2"

ct journalctl --since "$since" -o cat >$work/journal
! grep 'status=31/SYS' $work/journal || fail "a denied system call"
# No exit and no failure but for a start that could not attach to its
# control group, which unit (role-test.sh) tried again.
cgroup=$(grep -c 'temhostd.service: Main process exited, code=exited, status=219/CGROUP' $work/journal) || true
[ "$(grep -c 'temhostd.service: Main process exited' $work/journal)" -eq "$cgroup" ] &&
    [ "$(grep -c 'temhostd.service: Failed with result' $work/journal)" -eq "$cgroup" ] ||
    fail "temhostd failed: $(grep -e 'temhostd.service: Main process exited' -e 'temhostd.service: Failed' $work/journal)"
kill $trapd
trapd=
ct sh -c "pkill -x -f '/usr/local/bin/$long infinity'; umount /srv/locked/inner;
    rm /etc/snmp/snmpd.conf.d/zz-confinement.conf"
