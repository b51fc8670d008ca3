#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The MIB and mib-extns/object_map.h must not drift apart.

Every object the header declares under the served subtree is resolved by
name with snmptranslate against the MIB and must have the header's OID;
every scalar and table the MIB defines under that subtree must be declared
in the header. The header lists scalars (with their instance .0) and tables
(the table object), not columns: a scalar must be a scalar in the MIB and a
table a table (rows and columns the header may list are compared too).
Columns as a whole are checked against what the daemon serves by the
end-to-end name test. A second array with the OID of a declared object is
an alias (a trap binding) and names nothing; the enterprise array
(`enterprise_oid`) must hold the MIB's notifications under its .0 arc.

The header is parsed generically (#define macros of sub-identifiers and
`<name>_oid[] = {...}` arrays), so objects added to it later are checked
without touching this test.

Usage: check_drift.py BASE_MIB_DIR MIB_DIR OBJECT_MAP_H
"""

import os
import re
import subprocess
import sys
import tempfile

MODULE = "TEMHOSTD-MIB"
ROOT = "1.3.6.1.4.1.32473.11"


def parse_object_map(text):
    """{name: oid string} for every OID array of the header, macros expanded."""
    text = re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)
    macros = dict(re.findall(r"^\s*#\s*define\s+(\w+)\s+([^\n]+)$", text, flags=re.M))

    def expand(body, depth=0):
        if depth > 20:
            raise ValueError("macro recursion in " + body)
        out = []
        for tok in (t.strip() for t in body.split(",")):
            if not tok:
                continue
            if re.fullmatch(r"\d+", tok):
                out.append(tok)
            elif tok in macros:
                out += expand(macros[tok], depth + 1)
            else:
                raise ValueError("cannot read sub-identifier %r" % tok)
        return out

    objects = {}
    for name, body in re.findall(r"\boid\s+(\w+)_oid\s*\[\s*\]\s*=\s*\{([^}]*)\}", text):
        if name in objects:
            raise ValueError("%s declared twice" % name)
        objects[name] = ".".join(expand(body))
    if not objects:
        raise ValueError("no OID arrays found")
    return objects


class Mib:
    def __init__(self, base_dir, mib_dir):
        self.tmp = tempfile.TemporaryDirectory()
        # No host configuration, no persistent directory: only these MIBs.
        self.env = dict(os.environ, MIBS="", MIBDIRS="", SNMPCONFPATH=self.tmp.name,
                        SNMP_PERSISTENT_DIR=self.tmp.name)
        # (the library announces a missing certificate index directory)
        os.mkdir(os.path.join(self.tmp.name, "cert_indexes"))
        self.args = ["-M", base_dir + ":" + mib_dir, "-m", MODULE]

    def run(self, *args):
        p = subprocess.run(["snmptranslate", *self.args, *args], capture_output=True,
                           text=True, env=self.env)
        if p.returncode != 0 or p.stderr.strip():
            raise AssertionError("snmptranslate %s:\n%s%s" % (" ".join(args), p.stdout,
                                                             p.stderr))
        return p.stdout

    def resolve(self, name):
        return self.run("-On", MODULE + "::" + name).strip().lstrip(".")

    def served_definitions(self):
        """{name: (oid, kind)} for the MIB's objects under ROOT; kind is
        scalar, table, row or column."""
        nodes = {}
        for name, oid in re.findall(r'^"([^"]+)"\s+"([0-9.]+)"', self.run("-Tz"), flags=re.M):
            if oid.startswith(ROOT + "."):
                nodes[name] = oid
        details = {}
        for block in re.split(r"\n(?=%s::)" % MODULE, self.run("-Td", *[MODULE + "::" + n
                                                                      for n in nodes])):
            m = re.match(r"%s::(\S+)" % MODULE, block)
            if m:
                details[m.group(1)] = block
        entries = {oid for n, oid in nodes.items() if re.search(r"^\s*INDEX\b", details[n],
                                                                 flags=re.M)}
        result = {}
        for name, oid in nodes.items():
            parent = oid.rsplit(".", 1)[0]
            access = re.search(r"MAX-ACCESS\s+(\S+)", details[name])
            if oid + ".1" in entries:
                result[name] = (oid, "table")
            elif oid in entries:
                result[name] = (oid, "row")
            elif parent in entries:
                result[name] = (oid, "column")
            elif access and access.group(1) != "not-accessible":
                result[name] = (oid, "scalar")
        return result


    def notifications(self):
        """{name: oid} of the module's NOTIFICATION-TYPEs."""
        nodes = re.findall(r'^"([^"]+)"\s+"([0-9.]+)"', self.run("-Tz"), flags=re.M)
        # The module's own nodes outside the served subtree.
        names = [n for n, o in nodes
                 if o.startswith("1.3.6.1.4.1.") and not o.startswith(ROOT)]
        found = {}
        for block in re.split(r"\n(?=%s::)" % MODULE,
                              self.run("-Td", *[MODULE + "::" + n for n in names])):
            m = re.match(r"%s::(\S+)\n\S+ NOTIFICATION-TYPE" % MODULE, block)
            if m:
                found[m.group(1)] = dict(nodes)[m.group(1)]
        return found


def main(argv):
    if len(argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    base_dir, mib_dir, header = argv[1:]
    if not os.path.isfile(os.path.join(base_dir, "SNMPv2-SMI.txt")):
        print("base MIB modules missing in %s: run scripts/install-deps.sh" % base_dir,
              file=sys.stderr)
        return 1
    with open(header) as f:
        declared = parse_object_map(f.read())
    mib = Mib(base_dir, mib_dir)
    defined = mib.served_definitions()

    problems = []
    served = {n: o for n, o in declared.items() if o.startswith(ROOT + ".")}
    # A second array for an object's OID (a trap's variable binding, say)
    # is an alias, not an object of its own.
    aliases = {n for n, o in served.items()
               if n not in defined and any(o == p for m, p in served.items() if m in defined)}
    served = {n: o for n, o in served.items() if n not in aliases}
    for name, oid in sorted(served.items()):
        if name not in defined:
            problems.append("%s (%s) is in object_map.h but not an object of %s"
                            % (name, oid, MODULE))
            continue
        mib_oid, kind = defined[name]
        # The resolution by name, as a manager's tools do it.
        assert mib.resolve(name) == mib_oid, name
        want = mib_oid + ".0" if kind == "scalar" else mib_oid
        if oid != want:
            problems.append("%s: object_map.h has %s, the MIB's %s is %s"
                            % (name, oid, kind, want))
    for name, (oid, kind) in sorted(defined.items()):
        # The header lists tables, not their rows and columns; it may list
        # those too, and then they are checked above.
        if kind in ("scalar", "table") and name not in served:
            problems.append("%s %s (%s) is in the MIB but not in object_map.h"
                            % (kind, name, oid))
    # Outside the served subtree: the enterprise traps are sent under. Its .0
    # arc must hold the MIB's notifications, which are the SNMPv2 forms of
    # those traps.
    others = sorted(set(declared) - set(served) - aliases)
    if "enterprise" in declared:
        notifications = mib.notifications()
        if not notifications:
            problems.append("the MIB defines no notifications")
        for name, oid in sorted(notifications.items()):
            if oid.rsplit(".", 1)[0] != declared["enterprise"] + ".0":
                problems.append("notification %s (%s) is not under enterprise_oid .0 (%s)"
                                % (name, oid, declared["enterprise"]))

    for p in problems:
        print("DRIFT: " + p)
    tables_and_scalars = sum(k in ("scalar", "table") for _, k in defined.values())
    print("%d objects of object_map.h checked against %d scalars and tables of %s "
          "(aliases: %s; outside the subtree: %s); %d problems"
          % (len(served), tables_and_scalars, MODULE, ", ".join(sorted(aliases)) or "none",
             ", ".join(others) or "none", len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
