"""Host information and memory groups, through a real master."""

import os
import socket

import pytest

from conftest import ROOT, get, set_, set_error

INFO = ROOT + ".2.2"
ROLE, DETAIL = INFO + ".6.0", INFO + ".7.0"
MEM = ROOT + ".2.13"


def meminfo_kb():
    with open("/proc/meminfo") as f:
        return {line.split(":")[0]: int(line.split()[1]) for line in f if line.split()[1:]}


def test_os_identity(bed):
    bed.start_master()
    bed.start_daemon()
    u = os.uname()
    name, version, desc, ostype = get(INFO + ".1.0", INFO + ".2.0", INFO + ".3.0", INFO + ".4.0")
    assert name.str == u.sysname
    assert version.str == u.release
    assert desc.str == "%s running %s %s %s" % (u.nodename, u.sysname, u.release, u.version)
    assert ostype.int == 19


def test_telnet_follows_a_listener_on_port_23(bed):
    bed.start_master()
    bed.start_daemon()
    assert get(INFO + ".5.0").int == 3
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 23))
        s.listen(1)
        assert get(INFO + ".5.0").int == 2
    assert get(INFO + ".5.0").int == 3, "queried afresh on every GET"


@pytest.mark.parametrize("oid,limit", [(ROLE, 64), (DETAIL, 512)])
def test_role_texts_are_checked_and_kept(bed, oid, limit):
    bed.start_master()
    bed.start_daemon()
    assert get(oid).str == ""
    full = "".join(chr(ord("a") + i % 26) for i in range(limit))
    set_((oid, "s", full))
    assert get(oid).str == full
    assert set_error((oid, "s", full + "x")) == "wrongLength"
    assert set_error((oid, "i", 5)) == "wrongType"
    assert get(oid).str == full
    set_((oid, "s", ""))
    assert get(oid).str == ""


def test_a_failing_varbind_leaves_the_whole_set_undone(bed):
    bed.start_master()
    bed.start_daemon()
    set_((ROLE, "s", "web"))
    assert set_error((ROLE, "s", "database"), (DETAIL, "s", "d" * 513)) == "wrongLength"
    assert get(ROLE).str == "web"
    assert get(DETAIL).str == ""


def test_memory_figures_follow_proc_meminfo(bed):
    bed.start_master()
    bed.start_daemon()
    page = os.sysconf("SC_PAGE_SIZE")
    kb_per_page = page // 1024
    m = meminfo_kb()
    phys, free, paging, paging_free = [v.int for v in get(MEM + ".1.0", MEM + ".2.0",
                                                          MEM + ".3.0", MEM + ".4.0")]
    assert phys == os.sysconf("SC_PHYS_PAGES") * kb_per_page // 1024 + 1
    swap_pages = m["SwapTotal"] * 1024 // page
    free_swap_pages = m["SwapFree"] * 1024 // page
    assert paging == swap_pages * kb_per_page // 1024
    assert paging_free == free_swap_pages * kb_per_page // 1024
    available_mb = m["MemAvailable"] // 1024
    assert abs(free - available_mb) <= max(64, available_mb // 20)
    for n in range(1, 5):
        assert set_error((MEM + ".%d.0" % n, "i", 1)) == "notWritable"
