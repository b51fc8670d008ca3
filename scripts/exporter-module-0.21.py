#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Writes contrib/prometheus/snmp-0.21.yml, the temhostd module for
snmp_exporter 0.21 (Debian 12's), from contrib/prometheus/snmp.yml, the
format of 0.23 and later (Debian 13's), so that the two never drift: the
same walks and metrics, comments and all; only the credentials move from
the top-level auths: section into the module (0.21 knows no auths), and the
opening comment names the release.

The text is moved, not re-serialised (PyYAML would drop the comments and
anchors); the result is then parsed and compared with what it must mean.

Usage: scripts/exporter-module-0.21.py [--check]
  --check: change nothing; fail if snmp-0.21.yml is not what it would write.
"""

import os
import sys

import yaml

CONTRIB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "contrib", "prometheus")
SOURCE, TARGET = os.path.join(CONTRIB, "snmp.yml"), os.path.join(CONTRIB, "snmp-0.21.yml")
OPENING = """\
# SPDX-License-Identifier: Apache-2.0
# temhostd module for Prometheus' snmp_exporter 0.21 (Debian 12's
# prometheus-snmp-exporter), whose modules hold their own credentials. Made
# from snmp.yml beside it (the format of 0.23 and later, Debian 13's) by
# scripts/exporter-module-0.21.py: edit that file, never this one.
#
# Scrape it as /snmp?target=HOST&module=temhostd. Append it to the
# exporter's /etc/prometheus/snmp.yml (or run an exporter with
# --config.file pointing here) and put your read-only community below.
#
"""
SHARED = "# Units as served:"  # where the source's opening comment stops being its own


def convert(text):
    """snmp.yml's text -> snmp-0.21.yml's. Each module takes the auth of
    its own name."""
    config = yaml.safe_load(text)
    if set(config) != {"auths", "modules"} or set(config["auths"]) != set(config["modules"]):
        raise ValueError("snmp.yml: want auths: and modules: only, one auth per module, "
                         "named like it")
    lines = text.splitlines(keepends=True)
    shared = next(i for i, l in enumerate(lines) if l.startswith(SHARED))
    body = lines.index("modules:\n") + 1
    out = [OPENING] + lines[shared:next(i for i, l in enumerate(lines) if not l.startswith("#"))]
    for line in lines[body:]:
        if line.strip() and not line.startswith("  "):
            raise ValueError("snmp.yml: text after modules: at column 0: " + line)
        out.append(line[2:] if line.strip() else line)
        name = line[2:-2] if line.startswith("  ") and line[2] != " " and \
            line.endswith(":\n") else None
        if name in config["modules"]:
            auth = dict(config["auths"][name])
            out.append("  version: %s\n" % auth.pop("version", 2))
            out.append("  auth:\n" + "".join(
                "    " + l for l in yaml.safe_dump(auth, default_flow_style=False).splitlines(True)))
    result = "".join(out)
    # What it must mean: each module with its auth inside, nothing else.
    want = {}
    for name, module in config["modules"].items():
        auth = dict(config["auths"][name])
        want[name] = {"version": auth.pop("version", 2), "auth": auth, **module}
    if yaml.safe_load(result) != want:
        raise ValueError("snmp-0.21.yml would not hold snmp.yml's modules")
    return result


def main(argv):
    with open(SOURCE) as f:
        result = convert(f.read())
    if argv == ["--check"]:
        with open(TARGET) as f:
            if f.read() != result:
                print("%s is not made from %s: run scripts/exporter-module-0.21.py"
                      % (os.path.normpath(TARGET), os.path.normpath(SOURCE)), file=sys.stderr)
                return 1
        return 0
    if argv:
        print("usage: exporter-module-0.21.py [--check]", file=sys.stderr)
        return 2
    with open(TARGET, "w") as f:
        f.write(result)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
