#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the include lines of the daemon's sources against the layering:
the daemon (temhostd.cpp, daemon/) calls the MIB modules (mib-extns/), which
call the providers (interface/), which call the platform (platform/), and
nothing calls back up. Each breach is printed as FILE:LINE: RULE: what; the
exit status is 1 when there is one.

Usage: tests/layout_rules.py [SOURCE_DIR]   (default: the tree holding this file)
"""

import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
LAYERS = ("platform/", "interface/", "mib-extns/", "daemon/")
# Only where threads are started (the mount probe) and where their results
# come back to the loop (the glue) may the pool be used.
POOL_HEADER = "platform/offloop.h"
POOL_USERS = {"platform/offloop.cpp", "platform/mount_probe.cpp", "daemon/platform_glue.cpp"}
# Ours beside the software inventory: they take its codes from a header of
# their own, not the inventory's headers.
SOFTWARE_OURS = re.compile(r"^interface/sw_(checks|watch)\.(h|cpp)$")
SOFTWARE_DESIGN = re.compile(r"(^|/)vorHoSwVer")
# The one upward call: the poll-frequency SET re-arms the refresh alarm.
DAEMON_HEADER_USERS = {"mib-extns/vorMeMibGroup.cpp"}


def breaches(path, target, quoted):
    """The rules one include line of path breaks, as (rule, why) pairs."""
    found = []
    up = target == "temhostd.h" or target.startswith(("daemon/", "mib-extns/"))
    if path.startswith("platform/"):
        if target.startswith("net-snmp/"):
            found.append(("platform", "includes Net-SNMP; the platform library does not link it"))
        elif target.startswith(LAYERS[1:]) or target == "temhostd.h" or (
                quoted and not target.startswith("platform/")):
            found.append(("platform", "includes %s; platform/ includes only platform/ and "
                          "system headers" % target))
    if path.startswith("interface/") and up:
        found.append(("interface", "includes %s; providers include nothing of mib-extns/, "
                      "daemon/ or temhostd.h" % target))
    if path.startswith("mib-extns/"):
        if target.startswith("daemon/"):
            found.append(("mib-extns", "includes %s; the MIB modules include nothing of "
                          "daemon/" % target))
        elif target == "temhostd.h" and path not in DAEMON_HEADER_USERS:
            found.append(("mib-extns", "includes temhostd.h; only %s may (APPL_NAME is in "
                          "mib-extns/appl_name.h)" % ", ".join(sorted(DAEMON_HEADER_USERS))))
    if SOFTWARE_OURS.match(path) and SOFTWARE_DESIGN.search(target):
        found.append(("software", "includes %s; our software checks take the inventory's "
                      "codes from interface/swver_codes.h only" % target))
    if target == POOL_HEADER and path not in POOL_USERS:
        found.append(("pool", "includes %s; only %s may" % (POOL_HEADER,
                                                           ", ".join(sorted(POOL_USERS)))))
    return found


def sources(root):
    for name in ("temhostd.cpp", "temhostd.h", "main.cpp"):
        if os.path.isfile(os.path.join(root, name)):
            yield name
    for layer in LAYERS:
        for top, dirs, files in os.walk(os.path.join(root, layer)):
            dirs.sort()
            for f in sorted(files):
                if f.endswith((".cpp", ".h")):
                    yield os.path.relpath(os.path.join(top, f), root).replace(os.sep, "/")


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    count = 0
    failed = 0
    for path in sources(root):
        count += 1
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
            for number, line in enumerate(f, 1):
                m = INCLUDE.match(line)
                if not m:
                    continue
                for rule, why in breaches(path, m.group(2), m.group(1) == '"'):
                    print("%s:%d: %s rule: %s" % (path, number, rule, why))
                    failed += 1
    if count == 0:
        print("layout_rules: no sources under %s" % root)
        return 1
    if failed:
        print("layout_rules: %d include lines break the layering" % failed)
        return 1
    print("layout_rules: the include lines of %d files keep the layering" % count)
    return 0


if __name__ == "__main__":
    sys.exit(main())
