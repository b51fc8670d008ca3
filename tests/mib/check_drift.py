#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""mib-extns/object_map.h, the one place OIDs are written, and the MIB agree.

The header's arrays are the MIB's scalars (with their instance .0) and tables
under the served subtree, by name and OID, both ways; the MIB's notifications
lie under the .0 arc of enterprise_oid; and snmptranslate, reading the MIB as
managers' tools do, turns each of the header's OIDs into the header's name.

Usage: check_drift.py BASE_MIB_DIR MIB_DIR OBJECT_MAP_H
"""
import os
import re
import subprocess
import sys
import tempfile

base, mibs, header = sys.argv[1:]
ROOT = "1.3.6.1.4.1.32473.11."


def run(*cmd, **kw):
    p = subprocess.run(cmd, capture_output=True, text=True, **kw)
    if p.returncode:
        sys.exit("%s failed: %s" % (cmd[0], p.stderr))
    return p.stdout


# The header's arrays, its macros expanded by the compiler's own preprocessor.
with open(header) as f:
    source = re.sub(r"(?m)^\s*#\s*(include|pragma).*", "", f.read())
have = {"%s %s" % (name, re.sub(r"\s", "", body).replace(",", ".")) for name, body in
        re.findall(r"(\w+)_oid\s*\[\]\s*=\s*\{([^}]*)\}", run("cpp", "-P", input=source))}

want = set()
for line in run("smidump", "-c", "/dev/null", "-f", "identifiers", "TEMHOSTD-MIB",
                env=dict(os.environ, SMIPATH=base + ":" + mibs)).splitlines():
    _, name, kind, oid = (line.split() + [""] * 4)[:4]
    if kind in ("scalar", "table") and oid.startswith(ROOT):
        want.add("%s %s%s" % (name, oid, ".0" if kind == "scalar" else ""))
    elif kind == "notification":
        want.add("enterprise " + re.sub(r"\.0\.\d+$", "", oid))
problems = ["only in the MIB: " + s for s in sorted(want - have)]
problems += ["only in object_map.h: " + s for s in sorted(have - want)]

served = sorted(s.split() for s in have if ROOT in s)
with tempfile.TemporaryDirectory() as tmp:  # no host configuration or state
    env = dict(os.environ, SNMPCONFPATH=tmp, SNMP_PERSISTENT_DIR=tmp)
    names = served and run("snmptranslate", "-M", base + ":" + mibs, "-m", "TEMHOSTD-MIB",
                           *[oid for _, oid in served], env=env).split()
for (name, oid), got in zip(served, names + [None] * len(served)):
    if got != "TEMHOSTD-MIB::" + name + (".0" if oid.endswith(".0") else ""):
        problems.append("snmptranslate %s gives %s, not %s" % (oid, got, name))

for p in problems:
    print("DRIFT: " + p)
print("%d arrays of object_map.h, %d objects of the MIB: %d problems"
      % (len(have), len(want), len(problems)))
sys.exit(1 if problems else 0)
