# SPDX-License-Identifier: Apache-2.0
# Sourced by role-test.sh once the role has run with the extra vars of
# $work/more.yml: a real unit of the container's systemd (pasture-feeder,
# which role-test.sh made and started), watched through the role's "unit:"
# entry, reads 2, then 3 after a stop, then 2 after a start; the role's file
# system exclusions leave the tmpfs mounts out of the table. Uses ct, unit,
# v3 and fail of role-test.sh.
ct grep -qx 'softwareWatch utility procps unit pasture-feeder' /etc/snmp/temhostd.conf ||
    fail "no unit line in temhostd.conf"
# The row's state; polling is off, so a walk rebuilds at most every 15 s.
unit_row() { v3 walk 1.3.6.1.4.1.32473.11.2.7.2.1.2 2>/dev/null | awk '{ print $NF }' | tr -dc '0-9'; }
unit_row_becomes() {
    start=$(date +%s)
    until [ "$(unit_row)" = "$1" ]; do
        [ $(($(date +%s) - start)) -le 40 ] || fail "the unit's row reads $(unit_row), not $1"
        sleep 1
    done
    met="$met $(ct systemctl show -p ActiveState --value pasture-feeder)=$1"
}
met=
unit_row_becomes 2
ct systemctl stop pasture-feeder
unit_row_becomes 3
unit start pasture-feeder || fail "pasture-feeder does not start again"
unit_row_becomes 2
echo "role-test: unit states met:$met"
! v3 walk 1.3.6.1.4.1.32473.11.2.4.1.1.2 2>/dev/null | grep -q -e '"tmpfs On' -e ' On /run/' ||
    fail "excluded file systems listed"
v3 walk 1.3.6.1.4.1.32473.11.2.4.1.1.2 2>/dev/null | grep -q ' On /"' || fail "the root file system is not listed"
