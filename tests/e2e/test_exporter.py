# SPDX-License-Identifier: Apache-2.0
"""The Prometheus snmp_exporter module in contrib/prometheus: the exporter
scrapes the daemon through the master, and every metric equals what the
tools read for the same objects; objects not served are absent."""

import os
import re
import urllib.request

import pytest

from conftest import ROOT, Process, get, get_hex, octets, table_rows, wait_for

CONTRIB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "contrib",
                       "prometheus")
LISTEN = "127.0.0.1:9116"
PUBLIC = "rocommunity public 127.0.0.1\n"  # the module's community
FS, CPU, SW = ROOT + ".2.4.1.1", ROOT + ".2.3.1.1", ROOT + ".2.7.2.1"
MEMORY = {"temhostd_%s_megabytes" % n: ROOT + ".2.13.%d.0" % i for i, n in enumerate(
    ("physical_memory_size", "physical_memory_free", "paging_size", "paging_free"), 1)}
FS_COLUMNS = {3: "size_megabytes", 4: "used_megabytes", 5: "used_percent", 6: "files",
              7: "files_used"}
CPU_COLUMNS = {2: "1m", 3: "5m", 4: "30m", 5: "60m"}
STATUS = {"mib_condition": ".1.3.0", "trap_flags": ".2.11.1.0", "code_server": ".2.10.4.0",
          "hw_platform": ".2.15.1.0"}  # integers exported as they are
TEXTS = {"agent_version": ".2.7.3.0", "os_name": ".2.2.1.0",
         "os_release": ".2.2.2.0"}  # texts exported as a label named after the metric
STATUS_ARRAY, GUID = ROOT + ".2.10.1.0", ROOT + ".2.10.3.0"

_SAMPLE = re.compile(r'^([a-zA-Z_:][a-zA-Z0-9_:]*)(?:\{(.*)\})? (\S+)$')
_LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')


def parse_exposition(text):
    """[(name, {label: value}, float)] of a scrape."""
    samples = []
    for line in text.splitlines():
        if line and not line.startswith("#"):
            m = _SAMPLE.match(line)
            assert m, "unreadable exposition line: " + line
            labels = {k: bytes(v, "utf-8").decode("unicode_escape")
                      for k, v in _LABEL.findall(m.group(2) or "")}
            samples.append((m.group(1), labels, float(m.group(3))))
    return samples


def series(samples, name):
    """{index or processor: (labels, value)} of one metric."""
    return {l.get("index", l.get("processor")): (l, v) for n, l, v in samples if n == name}


def values(samples, name):
    return [v for n, _, v in samples if n == name]


@pytest.fixture
def exporter(bed):
    p = Process(["prometheus-snmp-exporter", "--config.file=" + CONTRIB + "/snmp.yml",
                 "--web.listen-address=" + LISTEN], "/var/log/exporter.out")

    def up():
        try:
            urllib.request.urlopen("http://%s/" % LISTEN, timeout=2).close()
            return True
        except OSError:
            assert p.running(), p.output()
            return False

    def scrape():
        url = "http://%s/snmp?target=127.0.0.1&module=temhostd" % LISTEN
        with urllib.request.urlopen(url, timeout=30) as r:
            return parse_exposition(r.read().decode())
    try:
        wait_for(up, timeout=10, what="the exporter")
        yield scrape
    finally:
        p.stop()


def served(oid):
    return "No Such" not in get(oid).text  # an empty OCTET STRING prints without a type


def check_status_scalars(samples):
    for name, oid in STATUS.items():
        want = [get(ROOT + oid).int] if served(ROOT + oid) else []
        assert values(samples, "temhostd_" + name) == want, name
    for name, oid in TEXTS.items():
        got = [l["temhostd_" + name] for n, l, _ in samples if n == "temhostd_" + name]
        assert got == ([get(ROOT + oid).str] if served(ROOT + oid) else []), name
    assert values(samples, "temhostd_enterprise_overall_condition") == \
        ([octets(get_hex(STATUS_ARRAY))[1]] if served(STATUS_ARRAY) else [])
    guid = [l["temhostd_guid"] for n, l, _ in samples if n == "temhostd_guid"]
    want = bytes(octets(get_hex(GUID)))
    assert guid == ((["0x" + want.hex().upper()] if want else [""]) if served(GUID) else [])


def check_cpu(samples, before, after):
    """A processor's average is exported when it is known (not -1)."""
    for column, name in CPU_COLUMNS.items():
        got = series(samples, "temhostd_cpu_busy_%s_percent" % name)
        assert set(got) <= {str(i) for i in set(before) | set(after)}, name
        for i in set(before) | set(after):
            reads = {t[i][column].int for t in (before, after) if column in t.get(i, {})}
            if str(i) in got:
                assert got[str(i)][1] in reads and got[str(i)][1] >= 0, (name, i)
            else:
                assert not reads or -1 in reads, "%s for processor %d missing" % (name, i)


def check_software(samples, rows):
    got = series(samples, "temhostd_software_info")
    assert set(got) == {str(i) for i in rows}
    for index, (labels, value) in got.items():
        r = rows[int(index)]
        assert value == 1 and labels == {"index": index, "name": r[4].str, "version": r[8].str,
                                         "kind": r[3].text, "status": r[2].text}
    assert series(samples, "temhostd_software_status") == {str(i): (
        {"index": str(i), "name": r[4].str, "kind": r[3].text}, r[2].int) for i, r in rows.items()}


def test_scrape_equals_snmp(bed, exporter):
    # Every figure holds still, so the scrape equals the reads: memory and
    # processor ticks come from frozen /proc files, polling on keeps the lists
    # built at start-up, and the averages change once at most (-1, then 0).
    bed.freeze("/proc/meminfo", "/proc/stat")
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master(PUBLIC)
    bed.start_daemon()
    memory = {n: get(o).int for n, o in MEMORY.items()}
    fs, cpu_before, sw = table_rows(FS), table_rows(CPU), table_rows(SW)
    samples = exporter()
    cpu_after = table_rows(CPU)

    for name, mb in memory.items():
        assert values(samples, name) == [mb], name
    assert fs
    for column, name in FS_COLUMNS.items():
        assert series(samples, "temhostd_fs_" + name) == {
            str(i): ({"index": str(i), "description": cols[2].str}, cols[column].int)
            for i, cols in fs.items()}, name
    check_cpu(samples, cpu_before, cpu_after)
    check_software(samples, sw)
    check_status_scalars(samples)
    # every megabyte series has its byte series recorded
    rules = open(CONTRIB + "/temhostd-rules.yml").read()
    for name in {n for n, _, _ in samples if n.endswith("_megabytes")}:
        assert "record: %sbytes\n    expr: %s * 1048576\n" % (name[:-9], name) in rules, name


# The master itself serves sample rows of the tables and scalars, so that
# their mapping (the -1 rule, the info series, the status array's condition
# octet) is proven whatever the daemon serves.
SAMPLE_ROWS = """
override {cpu}.1.0 integer 0
override {cpu}.1.3 integer 3
override {cpu}.2.0 integer 37
override {cpu}.2.3 integer -1
override {cpu}.3.0 integer -1
override {cpu}.3.3 integer 100
override {sw}.1.4 integer 4
override {sw}.2.4 integer 3
override {sw}.3.4 integer 2
override {sw}.4.4 octet_str "e1000"
override {sw}.8.4 octet_str "7.3.21"
override {array} octet_str "A7bc"
override {guid} octet_str "0123456789abcdef"
override {root}.2.7.3.0 octet_str "2.3.0.0"
""".format(cpu=CPU, sw=SW, array=STATUS_ARRAY, guid=GUID, root=ROOT)


def test_mapping_of_sample_rows(bed, exporter):
    bed.start_master(PUBLIC + SAMPLE_ROWS)
    cpu = table_rows(CPU)
    assert cpu[3][2].int == -1, "the sample rows are served"
    samples = exporter()
    check_cpu(samples, cpu, cpu)
    assert series(samples, "temhostd_cpu_busy_1m_percent") == {"0": ({"processor": "0"}, 37)}
    assert series(samples, "temhostd_cpu_busy_5m_percent") == {"3": ({"processor": "3"}, 100)}
    check_software(samples, table_rows(SW))
    assert values(samples, "temhostd_enterprise_overall_condition") == [ord("7")]
    check_status_scalars(samples)
