# SPDX-License-Identifier: Apache-2.0
"""The Prometheus snmp_exporter module in contrib/prometheus: a scrape of the
daemon through the master holds exactly the series the tools' reads of the
same objects give; objects not served or not yet known are absent. Through
this host's exporter (Debian 12's 0.21 here) and Debian 13's (0.28, from the
tree of scripts/debian13-tools.sh), each reading the module file of its
version."""

import os
import re
import urllib.error
import urllib.request

from conftest import ROOT, SOURCE, Process, get, octets, table_rows, wait_for
from fleet_bed import debian13_tools, exporter_module

CONTRIB = os.path.join(SOURCE, "contrib", "prometheus")
FS, CPU, SW = ROOT + ".2.4.1.1", ROOT + ".2.3.1.1", ROOT + ".2.7.2.1"
INTEGERS = {"physical_memory_size_megabytes": ".2.13.1.0", "mib_condition": ".1.3.0",
            "physical_memory_free_megabytes": ".2.13.2.0", "trap_flags": ".2.11.1.0",
            "paging_size_megabytes": ".2.13.3.0", "code_server": ".2.10.4.0",
            "paging_free_megabytes": ".2.13.4.0", "hw_platform": ".2.15.1.0"}
TEXTS = {"agent_version": ".2.7.3.0", "os_name": ".2.2.1.0", "os_release": ".2.2.2.0",
         "system_role": ".2.2.6.0", "system_role_detail": ".2.2.7.0"}
FS_COLUMNS = {3: "size_megabytes", 4: "used_megabytes", 5: "used_percent", 6: "files",
              7: "files_used"}


def scrape(exporter, listen):
    """{name: {frozenset of labels: value}} of the temhostd series, or None
    while the exporter does not listen yet."""
    assert exporter.running(), exporter.output()
    try:
        # auth: the credentials' name for exporters from 0.23; 0.21 ignores it
        with urllib.request.urlopen("http://%s/snmp?target=127.0.0.1&module=temhostd&auth=temhostd"
                                    % listen, timeout=30) as r:
            lines = [l for l in r.read().decode().splitlines() if l.startswith("temhostd_")]
    except urllib.error.URLError as e:
        if isinstance(e.reason, ConnectionRefusedError):
            return None
        raise
    out = {}
    for line in lines:
        m = re.match(r'^(\w+)(?:\{(.*)\})? (\S+)$', line)
        assert m, "unreadable exposition line: " + line
        labels = {k: bytes(v, "utf-8").decode("unicode_escape")
                  for k, v in re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', m.group(2) or "")}
        out.setdefault(m.group(1), {})[frozenset(labels.items())] = float(m.group(3))
    return out


def test_scrape_equals_snmp(bed):
    # Memory and processor ticks from frozen /proc files, polling on keeps the
    # lists of the start: every figure holds still but the averages (-1, then 0)
    bed.freeze("/proc/meminfo", "/proc/stat")
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master("rocommunity public 127.0.0.1\n")  # the module's community
    bed.start_daemon()
    tree = debian13_tools()
    exporters = {}  # listening address: exporter
    for i, program in enumerate(("prometheus-snmp-exporter",
                                 tree + "/usr/bin/prometheus-snmp-exporter")):
        listen = "127.0.0.1:%d" % (9116 + i)
        exporters[listen] = Process([program, "--config.file=" + exporter_module(program),
                                     "--web.listen-address=" + listen],
                                    "/var/log/exporter%d.out" % i)
        bed.daemons.append(exporters[listen])

    want = {}

    def expect(name, value, **labels):
        want.setdefault("temhostd_" + name, {})[frozenset(labels.items())] = value
    for name, oid in INTEGERS.items():
        expect(name, get(ROOT + oid).int)
    for name, oid in TEXTS.items():
        expect(name, 1, **{"temhostd_" + name: get(ROOT + oid).str})
    array = octets(get(ROOT + ".2.10.1.0", hex=True))
    expect("enterprise_overall_condition", array[1])
    expect("mib_status_array", 1, temhostd_mib_status_array="0x" + bytes(array).hex().upper())
    guid = bytes(octets(get(ROOT + ".2.10.3.0", hex=True)))
    expect("guid", 1, temhostd_guid="0x" + guid.hex().upper() if guid else "")
    for i, cols in table_rows(FS).items():
        for c, name in FS_COLUMNS.items():
            expect("fs_" + name, cols[c].int, index=str(i), description=cols[2].str)
    for i, r in table_rows(SW).items():
        expect("software_info", 1, index=str(i), name=r[4].str, version=r[8].str,
               kind=r[3].text, status=r[2].text)
        expect("software_status", r[2].int, index=str(i), name=r[4].str, kind=r[3].text)
    cpu_before = table_rows(CPU)
    got = {listen: wait_for(lambda: scrape(exporter, listen), what="the scrape of " + listen)
           for listen, exporter in exporters.items()}
    cpu_after = table_rows(CPU)
    for i in cpu_before:  # an average is exported once known (not -1)
        for c, w in {2: "1m", 3: "5m", 4: "30m", 5: "60m"}.items():
            name, key = "temhostd_cpu_busy_%s_percent" % w, frozenset({("processor", str(i))})
            reads = {cpu_before[i][c].int, cpu_after[i][c].int}
            if len(reads) > 1:  # the sample came between the reads: either is right
                for series in got.values():
                    series.get(name, {}).pop(key, None)
            elif reads != {-1}:
                want.setdefault(name, {})[key] = reads.pop()
    for listen, series in got.items():
        assert series == want, exporters[listen].output()
    got = got["127.0.0.1:9116"]
    rules = open(os.path.join(CONTRIB, "temhostd-rules.yml")).read()
    for name in (n for n in got if n.endswith("_megabytes")):  # byte series recorded
        assert "record: %sbytes\n    expr: %s * 1048576\n" % (name[:-9], name) in rules, name
