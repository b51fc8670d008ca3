# SPDX-License-Identifier: Apache-2.0
"""Load against the sanitizer build (scripts/test.sh runs it there): sixteen
concurrent walkers, then random SETs. No error, no time-out, a flat resident
size, only values a valid SET or the host could give, and no sanitizer
report. TEMHOSTD_RELIABILITY_SECONDS sets the walkers' time."""

import os
import random
import re
import subprocess
import threading
import time

from conftest import AGENT, READY_OIDS, ROOT, RW_COMMUNITY, get, octets, parse_values, tool, walk

DURATION = int(os.environ.get("TEMHOSTD_RELIABILITY_SECONDS", "60"))
WEB_PORT, WALKERS = ROOT + ".2.10.5.0", 16
TEXT_LIMITS = {ROOT + ".2.2.6.0": 64, ROOT + ".2.2.7.0": 512, ROOT + ".2.8.1.0": 254,
               ROOT + ".2.8.2.0": 511}  # the writable texts and their longest values
GUID, POLL, SW_KIND = ROOT + ".2.10.3.0", ROOT + ".2.1.4.1.0", ROOT + ".2.7.2.1.3"


def rss_kb(pid):
    return int(next(l for l in open("/proc/%d/status" % pid) if l.startswith("VmRSS:")).split()[1])


def random_value(rng):
    """An snmpset type letter and a value of it, often at a limit."""
    kind, n = rng.choice("iiuutaosssxx"), rng.choice(
        [0, 1, 5, 6, 15, 16, 17, 18, 63, 64, 65, 127, 128, 254, 255, 256, 511, 512, 513, 900, 901,
         2 ** 31 - 1, 2 ** 32 - 1, rng.randint(0, 1400), rng.randint(0, 2 ** 32 - 1)])
    if kind in "iut":
        return kind, str(-n if kind == "i" and rng.random() < 0.3 else n)
    if kind in "ao":
        count, top = (4, 255) if kind == "a" else (n % 12 + 2, 2 ** 32 - 1)
        return kind, "." * (kind == "o") + ".".join(str(rng.randint(0, top)) for _ in range(count))
    if kind == "s":
        return kind, "".join(rng.choice("abcXYZ 09-_.") for _ in range(n % 1401))
    return kind, bytes(rng.randint(0, 255) for _ in range(n % 1401)).hex()


def random_set(rng, known):
    """A SET of 1 to 4 random bindings, at OIDs known, cut short or made up."""
    args = []
    for _ in range(rng.randint(1, 4)):
        oid = rng.choice(known)
        if rng.random() < 0.3:
            parts = oid.split(".")
            oid = ".".join(parts[:rng.randint(len(ROOT.split(".")), len(parts))] + [
                str(rng.randint(0, 2 ** 32 - 1)) for _ in range(rng.randint(0, 3))])
        args += [oid, *random_value(rng)]
    subprocess.run(["snmpset", "-v2c", "-c", RW_COMMUNITY, "-t", "3", "-r", "0", "-On", AGENT,
                    *args], capture_output=True, timeout=30)


def test_walkers_and_random_sets_leave_no_error_no_growth_and_only_valid_values(bed):
    bed.start_master()
    d = bed.start_daemon()
    known = [v.oid for v in walk(ROOT)] + list(TEXT_LIMITS) + [GUID, POLL]
    length = lambda oid: len(octets(get(oid, hex=True)))
    guid_before, rng = length(GUID), random.Random(2026)
    stop, errors, walks = threading.Event(), [], [0] * WALKERS

    def walker(i):
        # no retry: a request lost once fails; the time-out allows a slow
        # answer on a busy machine (speed is for bench/)
        cmd, version = "snmpbulkwalk" if i % 2 == 0 else "snmpwalk", "1" if i % 4 == 3 else "2c"
        while not stop.is_set():
            try:
                n = len(parse_values(tool(cmd, "-t", "10", "-r", "0", AGENT, ROOT,
                                          version=version, timeout=300)))
                if n < len(READY_OIDS):
                    errors.append((i, "short walk: %d values" % n))
                if i % 4 == 1:  # every GET of it rebuilds the status array
                    tool("snmpget", "-t", "10", "-r", "0", AGENT, WEB_PORT)
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
    for _ in range(400):
        random_set(rng, known)
    assert errors == [] and min(walks) > 0, errors[:5]
    assert abs(final - settled) <= settled * 0.10, (settled, final)
    assert all("No Such Object" not in v.text for v in get(*READY_OIDS))
    for oid, limit in TEXT_LIMITS.items():
        assert length(oid) <= limit, oid
    assert length(GUID) in (guid_before, 16, 17) and get(POLL).int == 0, "polling stays off"
    for v in walk(SW_KIND):
        assert not v.oid.startswith(SW_KIND + ".") or 1 <= v.int <= 5, v
    d.stop()
    assert not re.search("Sanitizer|runtime error", d.output()), d.output()[-3000:]
