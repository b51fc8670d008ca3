# SPDX-License-Identifier: Apache-2.0
"""The values that outlive a restart: the persistent file's lines, their
limits, and the rollback through the saved copy after an abrupt end (the
stored GUID beside the SMBIOS one: test_scalars.py)."""

import os
import random
import signal
import time

from conftest import PERSIST_FILE, PID_FILE, ROOT, SAVED_COPY, get, set_

ROLE, DETAIL, POLL, GUID = (ROOT + s for s in (".2.2.6.0", ".2.2.7.0", ".2.1.4.1.0", ".2.10.3.0"))
GUID15 = "g" * 15
OURS = ("defaultPollFreq(sec) ", "hostguid ", "system_role ", "system_role_detail ")


def our_lines(path=PERSIST_FILE):
    with open(path) as f:
        return [l.rstrip("\n") for l in f if l.startswith(OURS)]


def test_clean_stop_stores_the_values_in_order_and_only_then(bed):
    # a line without a value is skipped; 15 characters are no GUID: the default
    bed.write_persistent("defaultPollFreq(sec) 60\ndefaultPollFreq(sec)\nhostguid %s\n" % GUID15)
    bed.start_master()
    d = bed.start_daemon()
    assert [v.str for v in get(ROLE, DETAIL, POLL, GUID)] == ["", "", "60", "0" * 16]
    detail = "d" * 511 + "e"
    set_((ROLE, "s", "Web"), (DETAIL, "s", detail), (GUID, "s", "0123456789ABCDEF"))
    # after the start-up read the values live in memory; the saved copy has them
    assert our_lines() == []
    assert our_lines(SAVED_COPY) == ["defaultPollFreq(sec) 60", "hostguid " + GUID15]
    d.stop()
    assert our_lines() == ["defaultPollFreq(sec) 60", "hostguid 0123456789ABCDEF",
                           "system_role Web", "system_role_detail " + detail]
    assert not os.path.exists(PID_FILE) and not os.path.exists(SAVED_COPY)
    bed.start_daemon()
    assert [v.str for v in get(ROLE, DETAIL, POLL, GUID)] == [
        "Web", detail, "60", "0123456789ABCDEF"]


def test_abrupt_ends_roll_back_to_the_last_clean_values(bed):
    bed.write_persistent("defaultPollFreq(sec) 60\nsystem_role Steady\n")
    with open(SAVED_COPY, "w") as f:  # left by some older run: a clean start drops it
        f.write("system_role Stale\n")
    bed.start_master()
    rng = random.Random(11)
    # a quarter during start-up, a quarter while serving, half during the
    # clean stop, which takes only about a millisecond here
    for i in range(20):
        d = bed.start_daemon(wait=False)
        if i % 4 == 0:
            time.sleep(rng.uniform(0.0, 0.15))
        else:
            bed.wait_daemon(d)
            if i % 2:
                d.proc.send_signal(signal.SIGTERM)
                until = time.perf_counter() + rng.uniform(0.0, 0.002)
                while time.perf_counter() < until:
                    pass
        d.stop(signal.SIGKILL)
        d = bed.start_daemon()
        assert [v.str for v in get(ROLE, POLL)] == ["Steady", "60"], i
        d.stop(signal.SIGKILL)
    d = bed.start_daemon()
    d.stop()
    lines = our_lines()
    assert lines[0] == "defaultPollFreq(sec) 60"
    assert lines[-2:] == ["system_role Steady", "system_role_detail Enter System role details"]

    d = bed.start_daemon()
    set_((ROLE, "s", "After"))
    d.stop(signal.SIGKILL)
    d = bed.start_daemon()
    assert get(ROLE).str == "Steady", "the saved copy of the start before"
    d.stop(signal.SIGKILL)
    os.unlink(PID_FILE)  # an emptied run directory after a reboot, say
    bed.start_daemon()
    assert get(ROLE).str == "", "the clean-start branch keeps the header-only file"
