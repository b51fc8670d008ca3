# SPDX-License-Identifier: Apache-2.0
"""TEMHOSTD-MIB in Net-SNMP's tools: a walk of the subtree names every object
as a leaf of the MIB, a table served has every column of the MIB (the
object map lists tables, not columns), and a notification is named too."""

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


def test_walk_and_notification_are_named(bed):
    log = "/var/log/trapd-names.log"
    bed.start_trap_receiver("-M", MIBDIRS, "-m", MODULE, log=log)
    bed.start_master("trap2sink 127.0.0.1:162 %s\n" % RO_COMMUNITY)
    bed.start_daemon()
    nodes = {n: o for n, o in re.findall(r'^"([^"]+)"\s+"([0-9.]+)"',
                                         named("snmptranslate", "-Tz"), flags=re.M)
             if o.startswith(ROOT + ".")}
    parent = {n: o.rsplit(".", 1)[0] for n, o in nodes.items()}
    leaves = {n for n, o in nodes.items() if o not in parent.values()}
    seen = {}
    walked = named("snmpwalk", "-v2c", "-c", RO_COMMUNITY, AGENT, ROOT).splitlines()
    for line in (l for l in walked if " = " in l):  # not a multi-line string's rest
        m = re.match(MODULE + r"::(\w+)\.(\S+) = ", line)
        assert m and m.group(1) in leaves, "not named as a leaf: " + line
        seen.setdefault(m.group(1), set()).add(m.group(2))
    assert len(seen) > 20
    for entry, oid in nodes.items():  # a table served has every column, all with the same rows
        columns = {n for n, p in parent.items() if p == oid}
        if entry.endswith("Entry") and columns & set(seen):
            assert len({frozenset(seen.get(c, ())) for c in columns}) == 1, entry

    set_((ROOT + ".2.8.1.0", "s", "disk replaced"))
    text = wait_for(lambda: "vorHoGenericDataSet" in open(log).read() and open(log).read(),
                    timeout=15, what="the notification")
    for name in ("vorHoGenericDataSet", "vorHoName.0", "vorHoTrapFlags.0", "vorHoGenericData.0"):
        assert MODULE + "::" + name in text, name
    assert "disk replaced" in text and "Cannot find module" not in text
