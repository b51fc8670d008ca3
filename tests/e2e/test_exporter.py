"""The Prometheus snmp_exporter module in contrib/prometheus: the exporter runs
inside the bed, scrapes the daemon through the master, and every metric must
equal what snmpget and snmpwalk return for the same objects. Tables and
scalars the daemon does not serve yet must simply be absent from the scrape;
they are compared as soon as they are served."""

import os
import re
import time
import urllib.request

import pytest

from conftest import AGENT, ROOT, Process, get, parse_values, tool, wait_for, walk

HERE = os.path.dirname(os.path.abspath(__file__))
CONFIG = os.path.join(HERE, "..", "..", "contrib", "prometheus", "snmp.yml")
RULES = os.path.join(HERE, "..", "..", "contrib", "prometheus", "temhostd-rules.yml")
LISTEN = "127.0.0.1:9116"
# The module ships with the community "public"; the bed's master grants it.
PUBLIC = "rocommunity public 127.0.0.1\n"
MB = ROOT + ".2.13"
FS, CPU, SW = ROOT + ".2.4.1.1", ROOT + ".2.3.1.1", ROOT + ".2.7.2.1"

MEMORY = {
    "temhostd_physical_memory_size_megabytes": MB + ".1.0",
    "temhostd_physical_memory_free_megabytes": MB + ".2.0",
    "temhostd_paging_size_megabytes": MB + ".3.0",
    "temhostd_paging_free_megabytes": MB + ".4.0",
}
FS_COLUMNS = {3: "temhostd_fs_size_megabytes", 4: "temhostd_fs_used_megabytes",
              5: "temhostd_fs_used_percent", 6: "temhostd_fs_files",
              7: "temhostd_fs_files_used"}
CPU_COLUMNS = {2: "temhostd_cpu_busy_1m_percent", 3: "temhostd_cpu_busy_5m_percent",
               4: "temhostd_cpu_busy_30m_percent", 5: "temhostd_cpu_busy_60m_percent"}
# Integer status scalars exported as they are.
STATUS = {
    "temhostd_mib_condition": ROOT + ".1.3.0",
    "temhostd_trap_flags": ROOT + ".2.11.1.0",
    "temhostd_code_server": ROOT + ".2.10.4.0",
    "temhostd_hw_platform": ROOT + ".2.15.1.0",
}
# Text scalars exported as a label named after the metric.
TEXTS = {
    "temhostd_agent_version": ROOT + ".2.7.3.0",
    "temhostd_os_name": ROOT + ".2.2.1.0",
    "temhostd_os_release": ROOT + ".2.2.2.0",
}
STATUS_ARRAY = ROOT + ".2.10.1.0"
GUID = ROOT + ".2.10.3.0"

_SAMPLE = re.compile(r'^([a-zA-Z_:][a-zA-Z0-9_:]*)(?:\{(.*)\})? (\S+)$')
_LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')


def parse_exposition(text):
    """{(name, frozenset of (label, value)): float} of a scrape."""
    samples = {}
    for line in text.splitlines():
        if not line or line.startswith("#"):
            continue
        m = _SAMPLE.match(line)
        assert m, "unreadable exposition line: " + line
        labels = frozenset((k, bytes(v, "utf-8").decode("unicode_escape"))
                           for k, v in _LABEL.findall(m.group(2) or ""))
        samples[(m.group(1), labels)] = float(m.group(3))
    return samples


def series(samples, name):
    return {dict(labels).get("index", dict(labels).get("processor")): (dict(labels), v)
            for (n, labels), v in samples.items() if n == name}


@pytest.fixture
def exporter(bed):
    p = Process(["prometheus-snmp-exporter", "--config.file=" + CONFIG,
                 "--web.listen-address=" + LISTEN], "/var/log/exporter.out")
    try:
        def scrape(module="temhostd"):
            url = "http://%s/snmp?target=127.0.0.1&module=%s" % (LISTEN, module)
            with urllib.request.urlopen(url, timeout=30) as r:
                return parse_exposition(r.read().decode())

        def up():
            try:
                urllib.request.urlopen("http://%s/" % LISTEN, timeout=2).close()
                return True
            except OSError:
                assert p.running(), p.output()
                return False

        wait_for(up, timeout=10, what="the exporter")
        yield scrape
    finally:
        p.stop()


def served(oid):
    # an empty OCTET STRING prints with no type, like the "No Such" answers
    return "No Such" not in get(oid).text


def table(entry):
    """{(column, index): Value} of a table; empty while it is not served."""
    cells = {}
    for v in walk(entry):
        if v.kind and v.oid.startswith(entry + "."):
            column, index = v.oid[len(entry) + 1:].split(".", 1)
            cells[(int(column), int(index))] = v
    return cells


def within(value, before, after):
    """A figure that may move while the scrape runs lies between the reads
    taken before and after it."""
    return min(before, after) <= value <= max(before, after)


def octets(oid):
    """The octets of an OCTET STRING object, read in hex."""
    v = parse_values(tool("snmpget", "-Ox", AGENT, oid))[0]
    if v.kind == "Hex-STRING":
        return bytes.fromhex(v.text.replace(" ", "").replace("\n", ""))
    assert v.text == '""', v
    return b""


def check_status_scalars(samples):
    for name, oid in STATUS.items():
        got = [v for (n, _), v in samples.items() if n == name]
        if served(oid):
            assert got == [get(oid).int], name
        else:
            assert got == [], name + " exported while not served"
    for name, oid in TEXTS.items():
        got = [dict(l)[name] for (n, l), _ in samples.items() if n == name]
        assert got == ([get(oid).str] if served(oid) else []), name
    condition = [v for (n, _), v in samples.items()
                 if n == "temhostd_enterprise_overall_condition"]
    assert condition == ([octets(STATUS_ARRAY)[1]] if served(STATUS_ARRAY) else [])
    guid = [dict(l)["temhostd_guid"] for (n, l), _ in samples.items() if n == "temhostd_guid"]
    if served(GUID):
        want = octets(GUID)
        assert guid == (["0x" + want.hex().upper()] if want else [""]), guid
    else:
        assert guid == []


def check_cpu(samples, before, after):
    indexes = {i for (_, i) in before} | {i for (_, i) in after}
    for column, name in CPU_COLUMNS.items():
        got = series(samples, name)
        assert set(got) <= {str(i) for i in indexes}, name
        for i in indexes:
            reads = {c.int for c in (before.get((column, i)), after.get((column, i))) if c}
            if str(i) in got:
                assert got[str(i)][1] in reads and got[str(i)][1] >= 0, (name, i)
            else:
                assert not reads or -1 in reads, "%s for processor %d missing" % (name, i)


def check_software(samples, rows):
    got = series(samples, "temhostd_software_info")
    assert set(got) == {str(i) for (c, i) in rows if c == 1}
    for index, (labels, value) in got.items():
        i = int(index)
        assert value == 1
        assert labels == {"index": index, "name": rows[(4, i)].str,
                          "version": rows[(8, i)].str, "kind": str(rows[(3, i)].int),
                          "status": str(rows[(2, i)].int)}


def test_scrape_equals_snmp(bed, exporter):
    bed.start_master(PUBLIC)
    bed.start_daemon()
    mem_before = {n: get(o).int for n, o in MEMORY.items()}
    fs_before, cpu_before, sw = table(FS), table(CPU), table(SW)
    samples = exporter()
    mem_after = {n: get(o).int for n, o in MEMORY.items()}
    fs_after, cpu_after = table(FS), table(CPU)

    for name in MEMORY:
        got = [v for (n, _), v in samples.items() if n == name]
        assert len(got) == 1 and within(got[0], mem_before[name], mem_after[name]), name

    assert fs_before, "the file system table has rows in the bed"
    rows = {i for (_, i) in fs_before}
    assert {i for (_, i) in fs_after} == rows, "file systems changed during the test"
    for column, name in FS_COLUMNS.items():
        got = series(samples, name)
        assert set(got) == {str(i) for i in rows}, name
        for i in rows:
            labels, value = got[str(i)]
            assert labels == {"index": str(i), "description": fs_before[(2, i)].str}
            assert within(value, fs_before[(column, i)].int, fs_after[(column, i)].int), \
                (name, i)

    check_cpu(samples, cpu_before, cpu_after)
    check_software(samples, sw)
    check_status_scalars(samples)

    # Every megabyte series has its byte series recorded.
    with open(RULES) as f:
        rules = f.read()
    for name in {n for (n, _) in samples if n.endswith("_megabytes")}:
        record = "record: %s\n    expr: %s * 1048576\n" % (name[:-len("megabytes")] + "bytes",
                                                            name)
        assert record in rules, name


# The master itself serves sample rows of the tables and scalars the daemon
# may not serve yet, so that their mapping (the -1 rule, the info series,
# the status array's condition octet) is proven whatever the daemon serves.
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
override {ver} octet_str "2.3.0.0"
""".format(cpu=CPU, sw=SW, array=STATUS_ARRAY, guid=GUID, ver=TEXTS["temhostd_agent_version"])


def test_mapping_of_sample_rows(bed, exporter):
    bed.start_master(PUBLIC + SAMPLE_ROWS)
    cpu = table(CPU)
    assert cpu[(2, 3)].int == -1, "the sample rows are served"
    samples = exporter()
    check_cpu(samples, cpu, cpu)
    assert series(samples, "temhostd_cpu_busy_1m_percent") == {"0": ({"processor": "0"}, 37)}
    assert series(samples, "temhostd_cpu_busy_5m_percent") == {"3": ({"processor": "3"}, 100)}
    check_software(samples, table(SW))
    assert samples[("temhostd_enterprise_overall_condition", frozenset())] == ord("7")
    check_status_scalars(samples)
