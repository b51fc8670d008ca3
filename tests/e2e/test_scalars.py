# SPDX-License-Identifier: Apache-2.0
"""The scalar groups through a real master: values, the MIB status array and
its local queries (without the daemon's community, or SNMPv3 only), the
GUID's sources and the SET checks."""

import os
import socket
import time

from conftest import AGENT, READY_OIDS, ROOT, get, octets, parse_values, set_, set_error, \
    table_rows, tool

S = ROOT + ".2"
STATUS_ARRAY, CONFIG_DATE, GUID, CODE_SERVER, WEB_PORT = (S + ".10.%d.0" % i for i in range(1, 6))
TRAP_FLAGS, CLIENT_MODIFIED, TELNET, ROLE, DETAIL = S + ".11.1.0", S + ".12.1.0", \
    S + ".2.5.0", S + ".2.6.0", S + ".2.7.0"
GENERIC, CRITICAL, NEXT_INDEX, AGENTS_VER = S + ".8.1.0", S + ".8.2.0", S + ".7.1.0", S + ".7.3.0"
PLATFORM, MEMORY = S + ".15.1.0", [S + ".13.%d.0" % i for i in range(1, 5)]
NO_ANSWER_LINE = "Local SNMP queries to the master agent get no answer"
# MIB 3 of the enterprise, served by the master from a file the test rewrites.
PASS_SCRIPT = """[ "$1" = "-g" ] || exit 0
k=$(case "$2" in *.3.1.3.0) echo condition;; *.3.1.1.0) echo major;; *.3.1.2.0) echo minor;; esac)
v=$(sed -n "s/^$k //p" /run/mib3.values)
[ -n "$k" ] && [ -n "$v" ] && printf '%s\\ninteger\\n%s\\n' "$2" "$v"
"""


def entries(*items):
    """The 256-octet array holding these (entry number, 4 octets), zero elsewhere."""
    array = [0] * 256
    for m, four in items:
        array[4 * m:4 * m + 4] = four
    return array


def test_values_status_array_guid_and_set_checks(bed):
    bed.freeze("/proc/meminfo")  # free memory and swap hold still
    bed.mount_tmpfs("/sys/firmware", 1)
    os.makedirs("/sys/firmware/dmi/tables")
    uuid = bytes([0x4c, 0x4c, 0x45, 0x44, 0, 0x31, 0x10, 0x80]) + bytes(range(1, 9))
    with open("/sys/firmware/dmi/tables/DMI", "wb") as f:  # a type 1 and the end
        f.write(bytes([1, 25, 1, 0, 1, 2, 0, 0]) + uuid + b"\x06Maker\0Model\0\0" +
                bytes([127, 4, 2, 0, 0, 0]))
    bed.write_persistent("hostguid 0000000000000000\n")  # a stored default: SMBIOS wins
    with open("/run/mib3.sh", "w") as f:
        f.write(PASS_SCRIPT)
    with open("/run/mib3.values", "w") as f:
        f.write("condition 4\nmajor 3\nminor 7\n")
    bed.start_master("pass .1.3.6.1.4.1.32473.3 /bin/sh /run/mib3.sh\n")
    started = int(time.time())
    bed.start_daemon()
    u, page = os.uname(), os.sysconf("SC_PAGE_SIZE")
    assert [v.str for v in get(*(S + ".2.%d.0" % i for i in range(1, 5)))] == [
        u.sysname, u.release, "%s running %s %s %s" % (u.nodename, u.sysname, u.release,
                                                       u.version), "19"]
    with open("/proc/meminfo") as f:
        m = {l.split(":")[0]: int(l.split()[1]) for l in f if l.split()[1:]}
    assert [v.int for v in get(*MEMORY)] == [os.sysconf("SC_PHYS_PAGES") * page // 2 ** 20 + 1] + [
        m[k] * 1024 // page * page // 2 ** 20 for k in ("MemAvailable", "SwapTotal", "SwapFree")]
    assert get(TELNET).int == 3
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 23))
        s.listen(1)
        assert get(TELNET).int == 2
    assert get(TELNET).int == 3, "queried afresh on every GET"

    v = get(AGENTS_VER, PLATFORM, CODE_SERVER, WEB_PORT, TRAP_FLAGS, CLIENT_MODIFIED, GENERIC,
            CRITICAL, NEXT_INDEX, CONFIG_DATE, STATUS_ARRAY, GUID, ROLE, DETAIL, hex=True)
    assert bytes(octets(v[0])) == b"2.3.0.0"
    assert [x.int for x in v[1:5]] == [3, 0, 2381, 0]
    assert octets(v[5]) == [0xFF, 0xFF]
    assert bytes(octets(v[6])) == b"generic trap data" and octets(v[7]) == []
    assert v[8].int == len(table_rows(S + ".7.2.1", 1)) + 1

    def date(t):  # year to second, cut before a zero octet
        t = time.localtime(t)
        o = [t.tm_year >> 8, t.tm_year & 255, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec]
        return o[:o.index(0)] if 0 in o else o
    assert octets(v[9]) in [date(t) for t in range(started, int(time.time()) + 1)]
    assert octets(v[10]) == entries((0, [1, 4, 8, 0]), (3, [1, 4, 3, 7]), (11, [1, 2, 1, 26]))
    assert octets(v[11]) == [0x4c, 0x4c, 0x45, 0x44], "SMBIOS UUID up to its first zero"
    assert octets(v[12]) == octets(v[13]) == [], "the roles are empty until set"
    # New answers show after the next GET of the web-management port; the
    # revisions going silent keep their last values.
    with open("/run/mib3.values", "w") as f:
        f.write("condition 1\n")
    assert get(WEB_PORT).int == 2381
    assert octets(get(STATUS_ARRAY, hex=True)) == entries(
        (0, [1, 2, 8, 0]), (3, [1, 1, 3, 7]), (11, [1, 2, 1, 26]))

    for oid, limit in ((ROLE, 64), (DETAIL, 512), (GENERIC, 254), (CRITICAL, 511)):
        full = "".join(chr(ord("a") + i % 26) for i in range(limit))
        set_((oid, "s", full))
        assert set_error((oid, "s", full + "x")) == "wrongLength"
        assert set_error((oid, "i", 5)) == "wrongType"
        assert get(oid).str == full, "refused SETs change nothing"
    set_((ROLE, "s", "web"), (DETAIL, "s", ""))
    assert set_error((ROLE, "s", "database"), (DETAIL, "s", "d" * 513)) == "wrongLength"
    assert [v.str for v in get(ROLE, DETAIL)] == ["web", ""], "a failing binding undoes the SET"
    for bad in ("G" * 15, "G" * 18):
        assert set_error((GUID, "s", bad)) == "wrongLength"
    assert set_error((GUID, "i", 1)) == "wrongType"
    for good in ("0123456789abcdef", "0123456789abcdefg"):
        set_((GUID, "s", good))
        assert bytes(octets(get(GUID, hex=True))) == good.encode()
    for oid in (STATUS_ARRAY, CONFIG_DATE, CODE_SERVER, WEB_PORT, TRAP_FLAGS, CLIENT_MODIFIED,
                NEXT_INDEX, AGENTS_VER, PLATFORM, MEMORY[0]):
        assert set_error((oid, "i", 1)) == "notWritable", oid


# Debian's snmpd.conf, its access lines: "public" reads the system group
# only and there is no "meadow"; the test reads through "manager".
DEBIAN_SNMPD_CONF = """sysLocation    Sitting on the Dock of the Bay
master  agentx
agentaddress  127.0.0.1,[::1]
view   systemonly  included   .1.3.6.1.2.1.1
rocommunity  public default -V systemonly
rouser authPrivUser authpriv -V systemonly
rocommunity manager 127.0.0.1
"""


def test_local_queries_with_and_without_the_masters_community(bed):
    bed.start_master("view systemonly included .1.3.6.1.4.1.32473\n",
                     base_conf=DEBIAN_SNMPD_CONF, probe_community="public")
    web_port = lambda: get(WEB_PORT, community="manager").int
    array = lambda: octets(get(STATUS_ARRAY, community="manager", hex=True))
    # snmpInBadCommunityNames: the daemon's unanswered queries
    dropped = lambda: get("1.3.6.1.2.1.11.4.0", community="manager").int
    d = bed.start_daemon(wait=False)
    bed.wait_daemon(d, interval=0.05, community="manager")
    assert dropped() == 1, "one query: the start-up refresh's"
    time.sleep(0.6)  # the first refresh's query has timed out by now
    took = []
    for _ in range(3):
        t = time.monotonic()
        assert web_port() == 2381
        took.append(time.monotonic() - t)
    # one query each, waiting out its 500 ms (the quickest of three: a busy
    # machine slows some)
    assert dropped() == 4 and 0.4 < min(took) < 1, took
    values = parse_values(tool("snmpwalk", AGENT, ROOT, community="manager"))
    assert len(values) >= len(READY_OIDS) and all("No Such" not in v.text for v in values)
    assert array() == entries((0, [1, 1, 8, 0]))
    out = d.output()
    assert out.count(NO_ANSWER_LINE) == 1 and 'community "meadow"' in out
    assert "warning" not in out.lower(), "Debian's directives pass silently"
    d.stop()
    d = bed.start_daemon("-c", "public", wait=False)  # -c: the local queries' community
    bed.wait_daemon(d, interval=0.05, community="manager")
    web_port()
    assert array()[44:48] == [1, 2, 1, 26] and NO_ANSWER_LINE not in d.output()


# SNMPv3 only: the master knows a user and no community; the client
# defaults in snmp.conf serve the daemon's local queries and the tools alike.
V3_MASTER_CONF = ("agentaddress udp:127.0.0.1:161\nmaster agentx\n"
                  "createUser ops SHA opsauthpass AES opsprivpass\nrouser ops authpriv\n")
V3_CLIENT_DEFAULTS = ("defVersion 3\ndefSecurityName ops\ndefSecurityLevel authPriv\n"
                      "defAuthType SHA\ndefAuthPassphrase opsauthpass\n"
                      "defPrivType AES\ndefPrivPassphrase opsprivpass\n")


def test_local_queries_as_the_snmpv3_user_of_the_client_defaults(bed):
    with open("/etc/snmp/snmp.conf", "w") as f:
        f.write(V3_CLIENT_DEFAULTS)
    bed.start_master(base_conf=V3_MASTER_CONF, probe_community=None)
    d = bed.start_daemon(wait=False)
    bed.wait_daemon(d, community=None)
    # the other MIBs answer noSuchObject (no error status in SNMPv3): zero
    assert octets(get(STATUS_ARRAY, community=None, hex=True)) == entries(
        (0, [1, 2, 8, 0]), (11, [1, 2, 1, 26]))
    assert NO_ANSWER_LINE not in d.output(), "no query before the defaults are read"
    probes = lambda: get("1.3.6.1.6.3.15.1.1.4.0", community=None).int  # usmStatsUnknownEngineIDs
    before = probes()
    for _ in range(3):
        get(WEB_PORT, community=None)
    assert probes() == before + 4, "the tools' own probes only: the daemon keeps its session"
    d.stop()
    # The daemon's queries go to a port that takes them and never answers
    # while AgentX works: one query's time-out per rebuild, not one per query.
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write("[snmp]\ndefaultPort 1161\n")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 1161))
        d = bed.start_daemon(wait=False)
        bed.wait_daemon(d, community=None)
        started = time.monotonic()
        assert get(WEB_PORT, community=None).int == 2381
        assert time.monotonic() - started < 1, "one 500 ms time-out"
    assert d.output().count(NO_ANSWER_LINE) == 1
