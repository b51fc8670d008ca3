"""TEMHOSTD-MIB in Net-SNMP's tools: a walk of the subtree names every
object, and the columns the daemon serves are exactly those of the MIB (the
object map lists tables, not columns, so this is where columns are checked
both ways). A notification received with the MIB loaded is named too."""

import os
import re
import subprocess

import pytest

from conftest import AGENT, BUILD, RO_COMMUNITY, ROOT, RW_COMMUNITY, Process, get, set_, wait_for

HERE = os.path.dirname(os.path.abspath(__file__))
MIBDIRS = os.path.join(BUILD, "mibs-base") + ":" + os.path.join(HERE, "..", "..", "mibs")
MODULE = "TEMHOSTD-MIB"
GENERIC_DATA = ROOT + ".2.8.1.0"


def named(tool, *args, env=None):
    p = subprocess.run([tool, "-M", MIBDIRS, "-m", MODULE, *args], capture_output=True,
                       text=True, timeout=60, env=env or dict(os.environ, MIBS=""))
    assert p.returncode == 0, p.stdout + p.stderr
    return p.stdout, p.stderr


def mib_tree():
    """(leaves, columns): the names of the MIB's objects under the subtree
    that have no children, and {entry name: set of its column names}."""
    out, _ = named("snmptranslate", "-Tz")
    nodes = {n: o for n, o in re.findall(r'^"([^"]+)"\s+"([0-9.]+)"', out, flags=re.M)
             if o.startswith(ROOT + ".")}
    parents = {o.rsplit(".", 1)[0] for o in nodes.values()}
    leaves = {n for n, o in nodes.items() if o not in parents}
    entries = {n: o for n, o in nodes.items() if n.endswith("Entry")}
    columns = {e: {n for n, o in nodes.items() if o.rsplit(".", 1)[0] == eo}
               for e, eo in entries.items()}
    return leaves, columns


def test_walk_names_every_object_and_every_served_column(bed):
    if not os.path.isfile(os.path.join(BUILD, "mibs-base", "SNMPv2-SMI.txt")):
        pytest.fail("base MIB modules missing: run scripts/install-deps.sh")
    bed.start_master()
    bed.start_daemon()
    out, err = named("snmpwalk", "-v2c", "-c", RO_COMMUNITY, AGENT, ROOT)
    assert err == "", "the tools complain: " + err
    lines = [l for l in out.splitlines() if " = " in l]
    assert len(lines) > 20
    unnamed = [l for l in lines if not l.startswith(MODULE + "::")]
    assert unnamed == [], "objects without a name"
    leaves, tables = mib_tree()
    seen = {}
    for l in lines:
        name, index = re.match(MODULE + r"::(\w+)\.(\S+) = ", l).groups()
        assert name in leaves, "named only by an ancestor: " + l
        seen.setdefault(name, set()).add(index)
    served_tables = 0
    for entry, columns in tables.items():
        served = columns & set(seen)
        if served:
            served_tables += 1
            assert served == columns, "%s: served %s, MIB %s" % (entry, served, columns)
            rows = {frozenset(seen[c]) for c in columns}
            assert len(rows) == 1, entry + ": columns with different rows"
    assert served_tables >= 1, "the file system table at least"


TRAPD_CONF = "disableAuthorization yes\n"


def test_notification_is_named(bed):
    bed.start_master("trap2sink 127.0.0.1:162 %s\n" % RO_COMMUNITY)
    bed.start_daemon()
    value = get(GENERIC_DATA)
    if value.kind == "":
        pytest.skip("vorHoGenericData is not served by this build")
    with open("/etc/snmp/trapd-names.conf", "w") as f:
        f.write(TRAPD_CONF)
    log = "/var/log/trapd-names.log"
    trapd = Process(["snmptrapd", "-f", "-C", "-c", "/etc/snmp/trapd-names.conf", "-Lf", log,
                     "-M", MIBDIRS, "-m", MODULE, "udp:127.0.0.1:162"],
                    "/var/log/trapd-names.out", env=dict(os.environ, MIBS=""))
    try:
        wait_for(lambda: os.path.exists(log) and "NET-SNMP version" in open(log).read(),
                 what="snmptrapd")
        set_((GENERIC_DATA, "s", "disk replaced"), community=RW_COMMUNITY)
        text = wait_for(lambda: "vorHoGenericDataSet" in open(log).read() and open(log).read(),
                        timeout=15, what="the notification")
    finally:
        trapd.stop()
    for name in ("vorHoGenericDataSet", "vorHoName.0", "vorHoTrapFlags.0",
                 "vorHoGenericData.0"):
        assert MODULE + "::" + name in text, name
    assert "disk replaced" in text
    assert "Cannot find module" not in text
