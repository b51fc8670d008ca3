# SPDX-License-Identifier: Apache-2.0
"""TEMHOSTD-MIB in Net-SNMP's tools: a walk of the subtree names every
object, the columns the daemon serves are exactly those of the MIB (the
object map lists tables, not columns, so columns are checked here both
ways), and a notification received with the MIB loaded is named too."""

import os
import re
import subprocess

from conftest import AGENT, BUILD, RO_COMMUNITY, ROOT, set_, wait_for

MIBDIRS = os.path.join(BUILD, "mibs-base") + ":" + os.path.join(
    os.path.dirname(os.path.abspath(__file__)), "..", "..", "mibs")
MODULE = "TEMHOSTD-MIB"


def named(tool, *args):
    p = subprocess.run([tool, "-M", MIBDIRS, "-m", MODULE, *args], capture_output=True,
                       text=True, timeout=60, env=dict(os.environ, MIBS=""))
    assert p.returncode == 0 and p.stderr == "", p.stdout + p.stderr
    return p.stdout


def mib_tree():
    """(names of the leaves under the subtree, {entry name: its column names})."""
    nodes = {n: o for n, o in re.findall(r'^"([^"]+)"\s+"([0-9.]+)"',
                                         named("snmptranslate", "-Tz"), flags=re.M)
             if o.startswith(ROOT + ".")}
    parents = {o.rsplit(".", 1)[0] for o in nodes.values()}
    columns = {e: {n for n, o in nodes.items() if o.rsplit(".", 1)[0] == eo}
               for e, eo in nodes.items() if e.endswith("Entry")}
    return {n for n, o in nodes.items() if o not in parents}, columns


def test_walk_and_notification_are_named(bed):
    assert os.path.isfile(os.path.join(BUILD, "mibs-base", "SNMPv2-SMI.txt")), \
        "base MIB modules missing: run scripts/install-deps.sh"
    log = "/var/log/trapd-names.log"
    bed.start_trap_receiver("-M", MIBDIRS, "-m", MODULE, log=log)
    bed.start_master("trap2sink 127.0.0.1:162 %s\n" % RO_COMMUNITY)
    bed.start_daemon()
    lines = [l for l in named("snmpwalk", "-v2c", "-c", RO_COMMUNITY, AGENT, ROOT).splitlines()
             if " = " in l]
    assert len(lines) > 20
    assert [l for l in lines if not l.startswith(MODULE + "::")] == [], "objects without a name"
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
            assert len({frozenset(seen[c]) for c in columns}) == 1, entry + ": uneven rows"
    assert served_tables >= 1, "the file system table at least"

    set_((ROOT + ".2.8.1.0", "s", "disk replaced"))
    text = wait_for(lambda: "vorHoGenericDataSet" in open(log).read() and open(log).read(),
                    timeout=15, what="the notification")
    for name in ("vorHoGenericDataSet", "vorHoName.0", "vorHoTrapFlags.0", "vorHoGenericData.0"):
        assert MODULE + "::" + name in text, name
    assert "disk replaced" in text and "Cannot find module" not in text
