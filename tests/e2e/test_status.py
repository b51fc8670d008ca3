"""The status, client, trap-info and miscellaneous scalars through a real
master: values, the MIB status array (with a second MIB of the enterprise
served by the master), SET checks, the SMBIOS GUID, and the local queries
against a master that does not know the daemon's community."""

import os
import re
import struct
import subprocess
import time

from conftest import (AGENT, DAEMON, READY_OIDS, ROOT, SnmpError, parse_values, set_, set_error,
                      tool, wait_for)

S = ROOT + ".2"
STATUS_ARRAY, CONFIG_DATE, GUID, CODE_SERVER, WEB_PORT = (S + ".10.%d.0" % i for i in range(1, 6))
TRAP_FLAGS, CLIENT_MODIFIED = S + ".11.1.0", S + ".12.1.0"
GENERIC, CRITICAL = S + ".8.1.0", S + ".8.2.0"
NEXT_INDEX, AGENTS_VER, SW_TABLE = S + ".7.1.0", S + ".7.3.0", S + ".7.2"
PLATFORM = S + ".15.1.0"
NO_ANSWER_LINE = "Local SNMP queries to the master agent get no answer"


def getx(*oids, community="meadow"):
    """GET with every octet string as hex; one Value, or a list."""
    values = parse_values(tool("snmpget", "-Ox", AGENT, *oids, community=community))
    return values[0] if len(oids) == 1 else values


def octets(value):
    return [int(h, 16) for h in re.findall(r"\b[0-9A-Fa-f]{2}\b", value.text)]


def entry(array, m):
    return array[4 * m:4 * m + 4]


def test_values_status_array_and_set_checks(bed):
    bed.start_master()
    started = time.localtime()
    bed.start_daemon()
    v = getx(AGENTS_VER, PLATFORM, CODE_SERVER, WEB_PORT, TRAP_FLAGS, CLIENT_MODIFIED, GENERIC,
             CRITICAL, NEXT_INDEX, CONFIG_DATE, STATUS_ARRAY)
    assert bytes(octets(v[0])) == b"2.3.0.0"
    assert [x.int for x in v[1:5]] == [3, 0, 2381, 0]
    assert octets(v[5]) == [0xFF, 0xFF]
    assert bytes(octets(v[6])) == b"generic trap data"
    assert octets(v[7]) == []
    rows = [x for x in tool("snmpwalk", AGENT, SW_TABLE).splitlines() if ".2.7.2.1.1." in x]
    assert v[8].int == len(rows) + 1
    # the start time, year to second (fewer octets when a field is zero)
    date = octets(v[9])
    assert 4 <= len(date) <= 7 and 0 not in date
    year, month, day = struct.unpack(">H", bytes(date[:2]))[0], date[2], date[3]
    assert (year, month, day) == (started.tm_year, started.tm_mon, started.tm_mday)
    if len(date) == 7:
        at = time.mktime((year, month, day, date[4], date[5], date[6], 0, 0, -1))
        assert abs(at - time.mktime(started)) <= 3

    # No other agent of the enterprise: only the header and entry 11.
    array = octets(v[10])
    assert len(array) == 256
    assert entry(array, 0) == [1, 2, 8, 0]
    assert entry(array, 11) == [1, 2, 1, 26]
    assert sum(array) == 1 + 2 + 8 + 1 + 2 + 1 + 26

    # SET checks of the three writable objects
    for bad in ("G" * 15, "G" * 18):
        assert set_error((GUID, "s", bad)) == "wrongLength"
    for good in ("0123456789abcdef", "0123456789abcdefg"):
        set_((GUID, "s", good))
        assert bytes(octets(getx(GUID))) == good.encode()
    set_((GENERIC, "s", "g" * 254))
    assert set_error((GENERIC, "s", "g" * 255)) == "wrongLength"
    set_((CRITICAL, "s", "c" * 511))
    assert set_error((CRITICAL, "s", "c" * 512)) == "wrongLength"
    for oid in (GUID, GENERIC, CRITICAL):
        assert set_error((oid, "i", 1)) == "wrongType", oid
    v = getx(GENERIC, CRITICAL)
    assert (len(octets(v[0])), len(octets(v[1]))) == (254, 511), "refused SETs change nothing"
    for oid in (STATUS_ARRAY, CONFIG_DATE, CODE_SERVER, WEB_PORT, TRAP_FLAGS, CLIENT_MODIFIED,
                NEXT_INDEX, AGENTS_VER, PLATFORM):
        assert set_error((oid, "i", 1)) == "notWritable", oid


# A second MIB of the enterprise (number 3), served by the master through a
# pass script whose answers come from a file the test rewrites.
PASS_SCRIPT = """#!/bin/sh
[ "$1" = "-g" ] || exit 0
case "$2" in
.1.3.6.1.4.1.32473.3.1.3.0) k=condition ;;
.1.3.6.1.4.1.32473.3.1.1.0) k=major ;;
.1.3.6.1.4.1.32473.3.1.2.0) k=minor ;;
*) exit 0 ;;
esac
v=$(sed -n "s/^$k //p" /var/tmp/mib3.values)
[ -n "$v" ] || exit 0
printf '%s\\ninteger\\n%s\\n' "$2" "$v"
"""


def test_second_enterprise_mib_appears_in_its_entry(bed):
    os.makedirs("/var/tmp", exist_ok=True)
    with open("/var/tmp/mib3.sh", "w") as f:
        f.write(PASS_SCRIPT)
    with open("/var/tmp/mib3.values", "w") as f:
        f.write("condition 4\nmajor 3\nminor 7\n")
    bed.start_master("pass .1.3.6.1.4.1.32473.3 /bin/sh /var/tmp/mib3.sh\n")
    bed.start_daemon()
    array = octets(getx(STATUS_ARRAY))
    assert entry(array, 3) == [1, 4, 3, 7]
    assert entry(array, 0) == [1, 4, 8, 0], "the largest condition"
    assert entry(array, 11) == [1, 2, 1, 26]

    # New answers (a minor revision above 255 gives its low octet) show
    # after the next GET of the web-management port; the revisions going
    # silent keeps their last values.
    with open("/var/tmp/mib3.values", "w") as f:
        f.write("condition 1\n")
    assert entry(octets(getx(STATUS_ARRAY)), 3) == [1, 4, 3, 7]
    assert getx(WEB_PORT).int == 2381
    array = octets(getx(STATUS_ARRAY))
    assert entry(array, 3) == [1, 1, 3, 7]
    assert entry(array, 0) == [1, 2, 8, 0]
    with open("/var/tmp/mib3.values", "w") as f:
        f.write("condition 3\nmajor 9\nminor 300\n")
    getx(WEB_PORT)
    array = octets(getx(STATUS_ARRAY))
    assert entry(array, 3) == [1, 3, 9, 300 % 256]
    assert entry(array, 0) == [1, 3, 8, 0]


def test_guid_from_the_smbios_table(bed):
    bed.mount_tmpfs("/sys/firmware", 1)
    os.makedirs("/sys/firmware/dmi/tables")
    uuid = bytes([0x4c, 0x4c, 0x45, 0x44, 0, 0x31, 0x10, 0x80]) + bytes(range(1, 9))
    system = bytes([1, 25, 1, 0, 1, 2, 0, 0]) + uuid + b"\x06" + b"Maker\0Model\0\0"
    with open("/sys/firmware/dmi/tables/DMI", "wb") as f:
        f.write(system + bytes([127, 4, 2, 0, 0, 0]))
    bed.start_master()
    bed.start_daemon()
    assert octets(getx(GUID)) == [0x4c, 0x4c, 0x45, 0x44]
    os.remove("/sys/firmware/dmi/tables/DMI")
    bed.daemons[0].stop()
    os.remove("/var/sma_snmp/temhostd.conf")  # what the clean stop stored
    bed.start_daemon()
    assert octets(getx(GUID)) == [], "no table, nothing stored: empty"


def test_no_master_still_exits_at_once(bed):
    started = time.monotonic()
    status, _, err = bed.run_daemon()
    assert status == 1 and "Could not initialize connection to Master" in err
    assert time.monotonic() - started < 2


# Debian's own snmpd.conf (as the package ships it, less its includeDir):
# "public" may read the system group only, and there is no "meadow".
DEBIAN_SNMPD_CONF = """sysLocation    Sitting on the Dock of the Bay
sysContact     Me <me@example.org>
sysServices    72
master  agentx
agentaddress  127.0.0.1,[::1]
view   systemonly  included   .1.3.6.1.2.1.1
view   systemonly  included   .1.3.6.1.2.1.25.1
rocommunity  public default -V systemonly
rocommunity6 public default -V systemonly
rouser authPrivUser authpriv -V systemonly
"""
# What the test itself reads through.
MANAGER = "rocommunity manager 127.0.0.1\n"


def start_with_debian_master(bed, extra, *args):
    bed.start_master(MANAGER + extra, base_conf=DEBIAN_SNMPD_CONF, probe_community="public")
    started = time.monotonic()
    d = bed.start_daemon(*args, wait=False)

    def ready():
        try:
            values = getx(*READY_OIDS, community="manager")
            return all("No Such Object" not in v.text for v in values)
        except SnmpError:
            return False
    wait_for(ready, timeout=10, interval=0.05, what="temhostd to answer")
    return d, time.monotonic() - started


def test_master_without_the_community_costs_little(bed):
    d, start_time = start_with_debian_master(bed, "")
    assert start_time < 2
    time.sleep(0.6)  # the first refresh's query has timed out by now
    for _ in range(3):
        t = time.monotonic()
        assert getx(WEB_PORT, community="manager").int == 2381
        took = time.monotonic() - t
        assert 0.4 < took < 1, "one query waits out its 500 ms, no more"
    values = parse_values(tool("snmpwalk", AGENT, ROOT, community="manager"))
    assert len(values) >= len(READY_OIDS)
    assert all("No Such" not in v.text for v in values)
    array = octets(getx(STATUS_ARRAY, community="manager"))
    assert entry(array, 11) == [0, 0, 0, 0] and entry(array, 0) == [1, 1, 8, 0]
    assert d.output().count(NO_ANSWER_LINE) == 1
    assert "warning" not in d.output().lower(), "Debian's directives pass silently"
    assert 'community "meadow"' in d.output()


def test_minus_c_gives_the_local_queries_their_community(bed):
    start_with_debian_master(bed, "view systemonly included .1.3.6.1.4.1.32473\n", "-c", "public")
    getx(WEB_PORT, community="manager")
    array = octets(getx(STATUS_ARRAY, community="manager"))
    assert entry(array, 11) == [1, 2, 1, 26]
    assert NO_ANSWER_LINE not in bed.daemons[0].output()
