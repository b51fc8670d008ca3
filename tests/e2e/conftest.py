# SPDX-License-Identifier: Apache-2.0
"""The pytest side of the agent bed (scripts/beds/agent_bed.py), inside the
private namespaces of run.sh. Every test gets fresh tmpfs state; everything
started is stopped again."""

import os
import sys
import time

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts",
                                "beds"))
from agent_bed import *  # noqa: E402,F401,F403  (the tests import the bed's names from here)
from agent_bed import Bed, SnmpError, get_ms, set_  # noqa: E402

BUILD = os.environ.get("TEMHOSTD_BUILD", "")
DAEMON = os.path.join(BUILD, "bin", "temhostd")


def check_walk_rebuilds(interval, change, shows):
    """Walks rebuild a list at most every `interval` s: change(n) makes change
    n (0, then 1), shows(n) walks and tells if it shows. Change 1 shows no
    sooner than interval - 1 s (whole seconds) after the walk that first
    showed change 0 began, and at the first walk begun interval s after it."""
    walks = ([], [])  # (start, end, shown) of each walk after change n
    for n, after in enumerate(walks):
        change(n)
        deadline = time.monotonic() + interval + 30
        while not after or not after[-1][2]:
            assert time.monotonic() < deadline, "change %d never shows" % n
            time.sleep(0.5 if after else 0)
            start = time.monotonic()
            shown = shows(n)
            after.append((start, time.monotonic(), shown))
    start, end, _ = walks[0][-1]
    assert walks[1][-1][1] - start > interval - 1, "rebuilt too soon"
    assert all(s < end + interval for s, _, _ in walks[1][:-1]), "rebuild overdue"


def gets_in_usual_time(oid, seconds):
    """GETs of oid every 20 ms for that long answer with a value, in the usual
    time: median below 50 ms, none above 0.3 s."""
    times, end = [], time.monotonic() + seconds
    while time.monotonic() < end:
        ms, reply = get_ms(oid)
        assert not reply.endswith(b"\x80\x00"), "the subtree is gone"
        times.append(ms)
        time.sleep(0.02)
    times.sort()
    assert times[len(times) // 2] < 50 and times[-1] < 300, times


def set_error(*triples):
    with pytest.raises(SnmpError) as e:
        set_(*triples)
    return e.value.args[0]

@pytest.fixture
def bed():
    if not BUILD:
        pytest.skip("run through tests/e2e/run.sh")
    b = Bed(BUILD)
    try:
        b.fresh_host()
        yield b
    finally:
        b.close()
