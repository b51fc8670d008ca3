# SPDX-License-Identifier: Apache-2.0
"""The CPU utilisation table through a real master: one row per processor,
refused requests, and the first averages of the 10-second sampling timer."""

import os
import subprocess
import time

from conftest import ROOT, get, set_, set_error, table_rows, wait_for

ENTRY = ROOT + ".2.3.1.1"


def rows():
    """{index: [1-, 5-, 30-, 60-minute average]}, checking the row shape."""
    with open("/sys/devices/system/cpu/present") as f:  # processors 0..n-1
        count = int(f.read().strip().replace(",", "-").split("-")[-1]) + 1
    table = table_rows(ENTRY)
    assert sorted(table) == list(range(count)), "one row per processor"
    for index, cols in table.items():
        assert sorted(cols) == list(range(1, 7)) and cols[1].int == index
        assert all(cols[c].kind == "INTEGER" for c in range(1, 6))
        assert cols[6].text == '""', "empty location: %r" % cols[6]  # printed without a type
    return {index: [cols[c].int for c in range(2, 6)] for index, cols in table.items()}


def test_rows_refusals_and_the_first_averages(bed):
    bed.start_master()
    cpu = max(os.sched_getaffinity(0))
    busy = subprocess.Popen(["taskset", "-c", str(cpu), "sh", "-c", "while :; do :; done"])
    try:
        daemon = bed.start_daemon()
        ready = time.monotonic()
        table = rows()
        assert all(a == [-1, -1, -1, -1] for a in table.values()), "nothing sampled yet"
        last = max(table)
        assert "No Such Instance" in get(ENTRY + ".2.%d" % (last + 1)).text
        set_((ENTRY + ".2.0", "i", 50))
        assert get(ENTRY + ".2.0").int == -1, "a SET changes nothing"
        assert set_error((ENTRY + ".2.%d" % (last + 1), "i", 50)) == "noCreation"
        # The timer primes 10 s after the start and computes 10 s later
        # (with a 15 s period that would be 30 s); the longer averages wait
        # out their whole span.
        loads = wait_for(lambda: all(a[0] >= 0 for a in rows().values()) and rows(),
                         timeout=40, interval=0.5, what="the first 1-minute averages")
        assert time.monotonic() - ready < 26
        assert all(0 <= one <= 100 and longer == [-1, -1, -1] for one, *longer in loads.values())
        assert loads[cpu][0] >= 80, "the busy processor: %r" % loads
    finally:
        busy.kill()
        busy.wait()
    assert "Orbeline Host Agent:-" not in daemon.output(), "no sample failed"
