"""Enterprise traps: SETs of the two operator texts reach the master's
trapsink (SNMPv1) and trap2sink (SNMPv2c) destinations straight from the
daemon, two seconds after the SET, once each, also after the master
restarts (the daemon's objects are back soon after it)."""

import socket
import time

from conftest import TRAP_SINKS, ROOT, set_, wait_for

GENERIC, CRITICAL = ROOT + ".2.8.1.0", ROOT + ".2.8.2.0"
ENTERPRISE = "1.3.6.1.4.1.32473"
SNMP_TRAP_OID = "1.3.6.1.6.3.1.1.4.1.0"


def ours(bed):
    """The daemon's traps so far (the master sends its own coldStart too)."""
    return [t for t in bed.traps() if t[1] == ENTERPRISE or any(
        o == SNMP_TRAP_OID and v.startswith("OID: .%s.0." % ENTERPRISE) for o, v in t[4])]


def check_pairs(traps, *sent):
    """traps: an SNMPv1 trap and an SNMPv2c notification per (specific, text)."""
    v1s, v2s = [t for t in traps if t[0] == 0], [t for t in traps if t[0] == 1]
    assert len(v1s) == len(v2s) == len(sent), traps
    for v1, v2, (specific, text) in zip(v1s, v2s, sent):
        binds = [(ROOT + ".2.2.1.0", 'STRING: "%s"' % socket.gethostname()),
                 (ROOT + ".2.11.1.0", "INTEGER: 0"), (GENERIC, 'STRING: "%s"' % text)]
        assert v1[:5] == (0, ENTERPRISE, "6", str(specific), binds)
        assert v2[4][0][0] == "1.3.6.1.2.1.1.3.0"  # sysUpTime.0
        assert v2[4][1:] == [(SNMP_TRAP_OID, "OID: .%s.0.%d" % (ENTERPRISE, specific)), *binds,
                             ("1.3.6.1.6.3.1.1.4.3.0", "OID: ." + ENTERPRISE)]


def test_traps_once_each_after_two_seconds_also_after_master_restarts(bed):
    bed.start_trap_receiver()
    bed.start_master(TRAP_SINKS)
    d = bed.start_daemon()
    asked = time.monotonic()
    set_((GENERIC, "s", "disk replaced"))
    wait_for(lambda: len(ours(bed)) >= 2, timeout=15, interval=0.05, what="the traps")
    assert time.monotonic() - asked >= 2, "not sent before the 2 s alarm (its period: unit tests)"
    check_pairs(ours(bed), (11003, "disk replaced"))

    for _ in range(3):
        bed.master.stop()
        time.sleep(0.5)  # long enough for the daemon to notice
        bed.start_master(TRAP_SINKS)  # returns once the master answers managers
        started = time.monotonic()
        bed.wait_daemon(d, timeout=10, interval=0.05)
        gap = time.monotonic() - started
        assert gap < 2.0, "objects came back %.2f s after the master" % gap
    # one request setting both: both traps in the request's order, and the
    # new AgentX sessions are no trap destination
    set_((GENERIC, "s", "first"), (CRITICAL, "s", "second"))
    wait_for(lambda: len(ours(bed)) >= 6, timeout=15, interval=0.05, what="the traps")
    check_pairs(ours(bed)[2:], (11003, "first"), (11014, "second"))
    out = d.output().lower()  # the master's directives are read without a word
    assert "warning" not in out and "unknown" not in out, out

    d.stop()
    bed.start_daemon("-T")
    set_((GENERIC, "s", "quiet"), (CRITICAL, "s", "quiet too"))
    time.sleep(3)  # also time for any duplicate of the traps above
    assert len(ours(bed)) == 6, "-T sends nothing; nothing came twice"
