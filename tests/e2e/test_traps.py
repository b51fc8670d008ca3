# SPDX-License-Identifier: Apache-2.0
"""Enterprise traps, sent by the daemon itself to every destination the
master's configuration names, and reconnection after the master restarts."""

import re
import socket
import time

import pytest
from conftest import READY_OIDS, RO_COMMUNITY, ROOT, get, set_, wait_for

GENERIC, CRITICAL = ROOT + ".2.8.1.0", ROOT + ".2.8.2.0"
ENTERPRISE, TRAP_OID = "1.3.6.1.4.1.32473", "1.3.6.1.6.3.1.1.4.1.0"
SINKS = "trapsink 127.0.0.1 {c}\ntrap2sink 127.0.0.1 {c}\n".format(c=RO_COMMUNITY)
# one SNMPv3 user for the master's trapsess lines and the receiver's createUser
V3_OPTIONS = "-u ops -l authPriv -a SHA -A ops-auth-1 -x AES -X ops-priv-1"
V3_USER = "createUser %s ops SHA ops-auth-1 AES ops-priv-1\n"  # %s: -e the sender's engine


def ours(bed):
    """The daemon's traps so far (the master sends its own coldStart too)."""
    return [t for t in bed.traps() if t[1] == ENTERPRISE or any(
        o == TRAP_OID and v.startswith("OID: .%s.0." % ENTERPRISE) for o, v in t[4])]


def binds(text):
    return [(ROOT + ".2.2.1.0", 'STRING: "%s"' % socket.gethostname()),
            (ROOT + ".2.11.1.0", "INTEGER: 0"), (GENERIC, 'STRING: "%s"' % text)]


def check_v2(trap, specific, text):
    assert trap[4][0][0] == "1.3.6.1.2.1.1.3.0"  # sysUpTime.0
    assert trap[4][1:] == [(TRAP_OID, "OID: .%s.0.%d" % (ENTERPRISE, specific)), *binds(text),
                           ("1.3.6.1.6.3.1.1.4.3.0", "OID: ." + ENTERPRISE)]


def check_pairs(traps, *sent):
    """An SNMPv1 trap and an SNMPv2c notification per (specific, text)."""
    v1s, v2s = [t for t in traps if t[0] == 0], [t for t in traps if t[0] == 1]
    assert len(v1s) == len(v2s) == len(sent), traps
    for v1, v2, (specific, text) in zip(v1s, v2s, sent):
        assert v1[:5] == (0, ENTERPRISE, "6", str(specific), binds(text))
        check_v2(v2, specific, text)


def test_traps_once_each_after_two_seconds_also_after_master_restarts(bed):
    bed.start_trap_receiver()
    bed.start_master(SINKS)
    d = bed.start_daemon()
    asked = time.monotonic()
    set_((GENERIC, "s", "disk replaced"))
    wait_for(lambda: len(ours(bed)) >= 2, timeout=15, interval=0.05, what="the traps")
    assert time.monotonic() - asked >= 2, "not sent before the 2 s alarm"
    check_pairs(ours(bed), (11003, "disk replaced"))

    for n, pause in enumerate((0, 3), 1):  # the last: several reconnection attempts in vain
        bed.master.stop()
        wait_for(lambda: d.output().lower().count("lost the agentx connection") == n,
                 what="the loss noticed")
        time.sleep(pause)
        bed.start_master(SINKS)  # returns once the master answers managers
        started = time.monotonic()
        bed.wait_daemon(d, timeout=10, interval=0.05)
        gap = time.monotonic() - started
        assert gap < 2.0, "objects came back %.2f s after the master" % gap
    # both traps in the request's order; the new AgentX sessions are no destination
    set_((GENERIC, "s", "first"), (CRITICAL, "s", "second"))
    wait_for(lambda: len(ours(bed)) >= 6, timeout=15, interval=0.05, what="the traps")
    check_pairs(ours(bed)[2:], (11003, "first"), (11014, "second"))
    out = d.output().lower()  # the master's directives are read without a word
    assert "warning" not in out and "unknown" not in out, out
    # one line at each loss and one at each return, none while it is away
    assert out.count("lost the agentx connection") == out.count(" s away\n") == 2, out
    assert "agentx master" not in out and "subagent connected" not in out, out

    d.stop()
    bed.start_daemon("-T")
    set_((GENERIC, "s", "quiet"), (CRITICAL, "s", "quiet too"))
    time.sleep(3)  # also time for any duplicate of the traps above
    assert len(ours(bed)) == 6, "-T sends nothing; nothing came twice"


def test_snmpv3_authpriv_trap_through_trapsess(bed):
    bed.start_master("trapsess -v3 %s 127.0.0.1:162\n" % V3_OPTIONS)
    d = bed.start_daemon("-Dnothing")  # a library option: the line still parses
    engine = re.search(r"user ops leave under engine ID (0x[0-9a-f]+)", d.output()).group(1)
    bed.start_trap_receiver(conf=V3_USER % ("-e " + engine))
    set_((GENERIC, "s", "disk replaced"))
    wait_for(lambda: ours(bed), timeout=5, interval=0.05, what="the trap")
    time.sleep(1)  # time for a second one
    [trap] = ours(bed)  # authenticated and decrypted, or snmptrapd drops it
    assert trap[0] == 3 and trap[5].startswith("TRAP2, SNMP v3, user ops,"), trap
    check_v2(trap, 11003, "disk replaced")


@pytest.mark.parametrize("line, user, wrapper", [
    ("informsink 127.0.0.1 public", "", "INFORM, SNMP v2c, community public"),
    ("trapsess -v3 -Ci %s 127.0.0.1:162" % V3_OPTIONS, V3_USER % "",
     "INFORM, SNMP v3, user ops, context ")])
def test_informs_acknowledged_and_a_silent_receiver_delays_no_answer(bed, line, user, wrapper):
    bed.start_trap_receiver(conf=user)
    bed.start_master(line + "\n")
    d = bed.start_daemon()
    set_((GENERIC, "s", "disk replaced"))
    wait_for(lambda: ours(bed), timeout=5, interval=0.05, what="the inform")
    time.sleep(2)  # past its first retry, had it not been acknowledged
    [inform] = ours(bed)
    assert inform[0] in (1, 3) and inform[5] == wrapper, inform
    check_v2(inform, 11003, "disk replaced")

    bed.trap_receiver.stop()
    d.stop()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 162))
        silent.settimeout(0.05)
        bed.start_daemon()  # to whom an SNMPv3 receiver's engine ID is unknown
        set_((GENERIC, "s", "nobody answers"))
        copies, slowest, end = 0, 0.0, time.monotonic() + 5
        while time.monotonic() < end:
            try:
                copies += bool(silent.recv(65535))
            except socket.timeout:
                pass
            asked = time.monotonic()
            get(READY_OIDS[0])
            slowest = max(slowest, time.monotonic() - asked)
    assert slowest < 1.0, "a GET took %.2f s while the inform was retried" % slowest
    assert copies >= 3, "the inform (or the question for the engine ID) is retried every second"
