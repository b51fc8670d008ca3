#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""mib-extns/object_map.h, the one place OIDs are written, and the MIB agree:
its arrays are the MIB's scalars (with their .0) and tables under the served
subtree, both ways, by name and OID; the MIB's notifications lie under
enterprise_oid .0; and snmptranslate, as managers' tools read the MIB, turns
each of its OIDs into its name.

Usage: check_drift.py BASE_MIB_DIR MIB_DIR OBJECT_MAP_H
"""
import os
import re
import subprocess
import sys
import tempfile

base, mibs, header = sys.argv[1:]
ROOT = "1.3.6.1.4.1.32473.11."
run = subprocess.check_output

with open(header) as f:
    # The header's macros expanded by the compiler's own preprocessor.
    expanded = run(["cpp", "-P"], text=True,
                   input=re.sub(r"(?m)^\s*#\s*(include|pragma).*", "", f.read()))
have = {"%s %s" % (name, re.sub(r"\s", "", body).replace(",", ".")) for name, body in
        re.findall(r"(\w+)_oid\s*\[\]\s*=\s*\{([^}]*)\}", expanded)}

want = set()
for line in run(["smidump", "-c", "/dev/null", "-f", "identifiers", "TEMHOSTD-MIB"], text=True,
                env=dict(os.environ, SMIPATH=base + ":" + mibs)).splitlines():
    _, name, kind, oid = (line.split() + [""] * 4)[:4]
    if kind in ("scalar", "table") and oid.startswith(ROOT):
        want.add("%s %s%s" % (name, oid, ".0" if kind == "scalar" else ""))
    elif kind == "notification":
        want.add("enterprise " + re.sub(r"\.0\.\d+$", "", oid))
problems = ["only in the MIB: " + s for s in sorted(want - have)]
problems += ["only in object_map.h: " + s for s in sorted(have - want)]

served = [s.split()[1] for s in have if ROOT in s]
with tempfile.TemporaryDirectory() as tmp:  # no host configuration or state
    os.mkdir(tmp + "/cert_indexes")
    env = dict(os.environ, SNMPCONFPATH=tmp, SNMP_PERSISTENT_DIR=tmp)
    names = served and run(["snmptranslate", "-M", base + ":" + mibs, "-m", "TEMHOSTD-MIB",
                            *served], text=True, env=env).split()
translated = {"%s %s" % (re.sub(r"^TEMHOSTD-MIB::|\.0$", "", n), o) for n, o in zip(names, served)}
problems += ["snmptranslate names " + s for s in sorted(translated - have)]

print(*["DRIFT: " + p for p in problems], "%d arrays of object_map.h, %d objects of the MIB: "
      "%d problems" % (len(have), len(want), len(problems)), sep="\n")
sys.exit(1 if problems else 0)
