"""The CPU utilisation table through a real master: one row per processor,
the averages unknown until sampled, a pinned busy loop showing in its row,
and requests the table refuses."""

import os
import subprocess
import time

from conftest import ROOT, get, set_, set_error, wait_for, walk

TABLE = ROOT + ".2.3.1"
ENTRY = TABLE + ".1"


def processor_count():
    """Processor numbers run 0..n-1 up to the highest present one."""
    with open("/sys/devices/system/cpu/present") as f:
        last = f.read().strip().replace(",", "-").split("-")[-1]
    return int(last) + 1


def rows():
    """{index: {column: value}} from a walk, checking its order and shape."""
    values = walk(TABLE)
    oids = [tuple(int(x) for x in v.oid.split(".")) for v in values]
    assert oids == sorted(oids), "the walk comes in OID order: column by column"
    table = {}
    for v in values:
        column, index = (int(x) for x in v.oid.split(".")[-2:])
        table.setdefault(index, {})[column] = v
    assert sorted(table) == list(range(processor_count())), "one row per processor"
    for index, cols in table.items():
        assert sorted(cols) == list(range(1, 7)), "six columns in row %d" % index
        assert cols[1].int == index
        assert all(cols[c].kind == "INTEGER" for c in range(1, 6))
        # the tools print an empty OCTET STRING as "" without a type
        assert cols[6].text == '""', "empty location: %r" % cols[6]
    return table


def averages(table, index):
    return [table[index][c].int for c in range(2, 6)]


def test_rows_and_refused_requests_right_after_start(bed):
    bed.start_master()
    bed.start_daemon()
    table = rows()
    for index in table:
        assert averages(table, index) == [-1, -1, -1, -1], "nothing sampled yet"
    last = max(table)
    missing = get(ENTRY + ".2.%d" % (last + 1))
    assert missing.kind == "" and "No Such Instance" in missing.text
    set_((ENTRY + ".2.0", "i", 50))
    assert get(ENTRY + ".2.0").int == -1, "a SET changes nothing"
    assert set_error((ENTRY + ".2.%d" % (last + 1), "i", 50)) == "noCreation"
    assert rows().keys() == table.keys(), "the daemon serves on"


def test_averages_follow_the_sampling_timer(bed):
    bed.start_master()
    started = time.monotonic()
    daemon = bed.start_daemon()
    cpu = max(os.sched_getaffinity(0))
    busy = subprocess.Popen(["taskset", "-c", str(cpu), "sh", "-c", "while :; do :; done"])
    try:
        # The timer primes at 10 s and computes from 20 s on; the long
        # averages wait out their whole span after start-up.
        time.sleep(max(0.0, started + 25 - time.monotonic()))
        table = rows()
        for index in table:
            one, five, thirty, sixty = averages(table, index)
            assert 0 <= one <= 100, "row %d: %r" % (index, table[index])
            assert [five, thirty, sixty] == [-1, -1, -1]
        # Six samples of the pinned loop fill the 1-minute ring by ~70 s.
        time.sleep(max(0.0, started + 72 - time.monotonic()))
        wait_for(lambda: averages(rows(), cpu)[0] >= 80, timeout=20, interval=2,
                 what="the busy processor's 1-minute load to reach 80: %r" % rows()[cpu])
        assert averages(rows(), cpu)[1] == -1, "the 5-minute value waits 300 s"
    finally:
        busy.kill()
        busy.wait()
    assert "Orbeline Host Agent:-" not in daemon.output(), "no sample failed"
