"""Enterprise traps: SETs of the two operator texts reach the master's
trapsink (SNMPv1) and trap2sink (SNMPv2c) destinations straight from the
daemon, two seconds after the SET, once each."""

import socket
import time

from conftest import TRAP_SINKS, ROOT, set_, wait_for

GENERIC, CRITICAL = ROOT + ".2.8.1.0", ROOT + ".2.8.2.0"
HOST_NAME, TRAP_FLAGS = ROOT + ".2.2.1.0", ROOT + ".2.11.1.0"
ENTERPRISE = "1.3.6.1.4.1.32473"
SNMP_TRAP_OID, SNMP_TRAP_ENTERPRISE = "1.3.6.1.6.3.1.1.4.1.0", "1.3.6.1.6.3.1.1.4.3.0"
SYS_UPTIME = "1.3.6.1.2.1.1.3.0"


def ours(bed):
    """The daemon's traps so far (the master sends its own coldStart too)."""
    return [t for t in bed.traps()
            if t[1] == ENTERPRISE or any(o == SNMP_TRAP_OID and v.startswith(
                "OID: .%s.0." % ENTERPRISE) for o, v in t[4])]


def expected_bindings(text):
    return [(HOST_NAME, 'STRING: "%s"' % socket.gethostname()), (TRAP_FLAGS, "INTEGER: 0"),
            (GENERIC, 'STRING: "%s"' % text)]


def check_pair(v1, v2, specific, text):
    assert v1[:4] == (0, ENTERPRISE, "6", str(specific))
    assert v1[4] == expected_bindings(text)
    binds = v2[4]
    assert v2[0] == 1
    assert [o for o, _ in binds[:2]] == [SYS_UPTIME, SNMP_TRAP_OID]
    assert binds[1][1] == "OID: .%s.0.%d" % (ENTERPRISE, specific)
    assert binds[2:5] == expected_bindings(text)
    assert binds[5:] == [(SNMP_TRAP_ENTERPRISE, "OID: ." + ENTERPRISE)]


def by_version(traps, version):
    return [t for t in traps if t[0] == version]


def test_sets_send_one_trap_and_one_notification_each(bed):
    bed.start_trap_receiver()
    bed.start_master(TRAP_SINKS)
    d = bed.start_daemon()

    set_((GENERIC, "s", "disk replaced"))
    answered = time.monotonic()
    wait_for(lambda: len(ours(bed)) >= 2, timeout=5, interval=0.05, what="the traps")
    delay = time.monotonic() - answered
    assert 1.5 < delay < 3.5, delay
    time.sleep(1.5)  # nothing else follows, through the master or otherwise
    traps = ours(bed)
    assert len(traps) == 2
    check_pair(by_version(traps, 0)[0], by_version(traps, 1)[0], 11003, "disk replaced")

    set_((CRITICAL, "s", "patch 42 due"))
    wait_for(lambda: len(ours(bed)) >= 4, timeout=5, interval=0.05, what="the traps")
    traps = ours(bed)[2:]
    check_pair(by_version(traps, 0)[0], by_version(traps, 1)[0], 11014, "patch 42 due")

    # One request setting both: both traps, in the request's order.
    set_((GENERIC, "s", "first"), (CRITICAL, "s", "second"))
    wait_for(lambda: len(ours(bed)) >= 8, timeout=5, interval=0.05, what="the traps")
    time.sleep(1)
    traps = ours(bed)[4:]
    assert len(traps) == 4
    v1, v2 = by_version(traps, 0), by_version(traps, 1)
    check_pair(v1[0], v2[0], 11003, "first")
    check_pair(v1[1], v2[1], 11014, "second")

    # the master's directives are read without a word about the unknown ones
    out = d.output().lower()
    assert "warning" not in out and "unknown" not in out, out


def test_minus_T_sets_succeed_and_send_nothing(bed):
    bed.start_trap_receiver()
    bed.start_master(TRAP_SINKS)
    bed.start_daemon("-T")
    set_((GENERIC, "s", "quiet"))
    set_((CRITICAL, "s", "quiet too"))
    time.sleep(3)
    assert ours(bed) == []
    assert len(bed.traps()) >= 1, "the receiver got the master's own coldStart"


def test_after_a_master_restart_traps_still_go_to_the_sinks_only(bed):
    bed.start_trap_receiver()
    bed.start_master(TRAP_SINKS)
    d = bed.start_daemon()
    bed.master.stop()
    bed.start_master(TRAP_SINKS)
    # the daemon reconnects (it pings the master every 15 s) and registers again
    wait_for(lambda: bed._daemon_answers(d), timeout=40, interval=0.5, what="the reconnection")
    set_((GENERIC, "s", "after restart"))
    wait_for(lambda: len(ours(bed)) >= 2, timeout=5, interval=0.05, what="the traps")
    time.sleep(1.5)
    traps = ours(bed)
    assert len(traps) == 2, "the new AgentX session is no trap destination either"
    check_pair(by_version(traps, 0)[0], by_version(traps, 1)[0], 11003, "after restart")
