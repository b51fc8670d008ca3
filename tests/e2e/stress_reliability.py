# SPDX-License-Identifier: Apache-2.0
"""Sixteen concurrent walkers of the subtree (GETBULK over v2c, GETNEXT over
v1 and v2c, some also reading the web-management port, whose every GET
rebuilds the status array through the master): no error, no time-out, and a
flat resident size. Run against the sanitizer build by scripts/test.sh;
TEMHOSTD_RELIABILITY_SECONDS sets its length (default 60, long form 300)."""

import os
import re
import threading
import time

from conftest import AGENT, READY_OIDS, ROOT, parse_values, tool

DURATION = int(os.environ.get("TEMHOSTD_RELIABILITY_SECONDS", "60"))
WEB_PORT, WALKERS = ROOT + ".2.10.5.0", 16


def rss_kb(pid):
    return int(next(l for l in open("/proc/%d/status" % pid) if l.startswith("VmRSS:")).split()[1])


def test_sixteen_walkers_leave_no_error_and_no_growth(bed):
    bed.start_master()
    d = bed.start_daemon()
    stop = threading.Event()
    errors, walks = [], [0] * WALKERS

    def walker(i):
        # no retry: a request lost once is a failure; its time-out is long
        # enough for a slow answer on a busy machine (speed: bench/)
        cmd = "snmpbulkwalk" if i % 2 == 0 else "snmpwalk"
        version = "1" if i % 4 == 3 else "2c"
        once = ("-t", "10", "-r", "0")
        while not stop.is_set():
            try:
                n = len(parse_values(tool(cmd, *once, AGENT, ROOT, version=version, timeout=300)))
                if n < len(READY_OIDS):
                    errors.append((i, "short walk: %d values" % n))
                if i % 4 == 1:
                    tool("snmpget", *once, AGENT, WEB_PORT)
                walks[i] += 1
            except Exception as e:  # noqa: BLE001 - every failure counts
                errors.append((i, repr(e)[:300]))

    threads = [threading.Thread(target=walker, args=(i,)) for i in range(WALKERS)]
    for t in threads:
        t.start()
    try:
        time.sleep(DURATION / 2)
        settled = rss_kb(d.pid)
        time.sleep(DURATION - DURATION / 2)
        final = rss_kb(d.pid)
    finally:
        stop.set()
        for t in threads:
            t.join()
    assert errors == [], errors[:5]
    assert min(walks) > 0
    assert abs(final - settled) <= settled * 0.10, (settled, final)
    d.stop()
    assert not re.search("Sanitizer|runtime error", d.output()), d.output()[-3000:]
    print("walks: %d, resident size %d kB after %d s, %d kB at the end"
          % (sum(walks), settled, DURATION // 2, final))
