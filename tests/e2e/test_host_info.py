# SPDX-License-Identifier: Apache-2.0
"""Host information and memory groups, through a real master."""

import os
import socket

from conftest import ROOT, get, set_, set_error

INFO, MEM = ROOT + ".2.2", ROOT + ".2.13"
TELNET, ROLE, DETAIL = INFO + ".5.0", INFO + ".6.0", INFO + ".7.0"


def test_identity_telnet_memory_and_role_texts(bed):
    bed.freeze("/proc/meminfo")  # free memory and swap hold still
    bed.start_master()
    bed.start_daemon()
    u = os.uname()
    assert [v.str for v in get(*(INFO + ".%d.0" % i for i in range(1, 5)))] == [
        u.sysname, u.release, "%s running %s %s %s" % (u.nodename, u.sysname, u.release,
                                                       u.version), "19"]
    assert get(TELNET).int == 3
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 23))
        s.listen(1)
        assert get(TELNET).int == 2
    assert get(TELNET).int == 3, "queried afresh on every GET"

    page = os.sysconf("SC_PAGE_SIZE")
    with open("/proc/meminfo") as f:
        m = {l.split(":")[0]: int(l.split()[1]) for l in f if l.split()[1:]}
    phys, *rest = [v.int for v in get(*(MEM + ".%d.0" % i for i in range(1, 5)))]
    assert phys == os.sysconf("SC_PHYS_PAGES") * page // 1024 // 1024 + 1
    assert rest == [m[k] * 1024 // page * page // 1024 // 1024
                    for k in ("MemAvailable", "SwapTotal", "SwapFree")]
    assert set_error((MEM + ".1.0", "i", 1)) == "notWritable"

    for oid, limit in ((ROLE, 64), (DETAIL, 512)):
        assert get(oid).str == ""
        full = "".join(chr(ord("a") + i % 26) for i in range(limit))
        set_((oid, "s", full))
        assert get(oid).str == full
        assert set_error((oid, "s", full + "x")) == "wrongLength"
        assert set_error((oid, "i", 5)) == "wrongType"
        assert get(oid).str == full
        set_((oid, "s", ""))
    # a failing varbind leaves the whole SET undone
    set_((ROLE, "s", "web"))
    assert set_error((ROLE, "s", "database"), (DETAIL, "s", "d" * 513)) == "wrongLength"
    assert [v.str for v in get(ROLE, DETAIL)] == ["web", ""]
