"""The software version table through a real master: rows from a fixture
package database, package states from the process and module lists, the
SET matrix, operator edits across rebuilds and restarts, and when the
listing is read. This kernel has no loadable modules (no /proc/modules),
so modinfo lists none here and a driver module reads as not loaded; a
listed module is covered by the unit tests."""

import os
import shutil
import subprocess
import time

import pytest

from conftest import ROOT, get, getnext, set_, set_error, wait_for, walk

TABLE = ROOT + ".2.7.2"
ENTRY = TABLE + ".1"
DPKG_STATUS = "/var/lib/dpkg/status"
WORKED_EXAMPLE = ("KYQtem", "Host agent for the platform", "7.9.0,REV=2007.11.15")
LISTING_READ = "refresh_refresh_SwverLoad_CB: Enter"


@pytest.fixture(autouse=True)
def package_db():
    """Each test writes its own package database; the run's /var is shared
    by the tests of this file, so the host's copy is put back after each."""
    with open(DPKG_STATUS, "rb") as f:
        saved = f.read()
    yield
    with open(DPKG_STATUS, "wb") as f:
        f.write(saved)


def write_db(*packages):
    with open(DPKG_STATUS, "w") as f:
        for name, synopsis, version in packages:
            f.write("Package: %s\nStatus: install ok installed\nArchitecture: amd64\n"
                    "Version: %s\nDescription: %s\n more text\n\n" % (name, version, synopsis))


def start_named(bed, name):
    """A process whose command line holds name (a copy of sleep)."""
    path = "/tmp/" + name
    shutil.copy("/bin/sleep", path)
    proc = subprocess.Popen([path, "600"])
    bed.daemons.append(_Killed(proc))
    return proc


class _Killed:
    """Lets the bed stop a helper process with the daemons."""

    def __init__(self, proc):
        self.proc = proc

    def stop(self):
        self.proc.kill()
        self.proc.wait()


def rows(column=None):
    """{index: {column: Value}} from a walk of the table (or one column)."""
    table = {}
    prefix = ENTRY + (".%d" % column if column else "")
    for v in walk(prefix):
        if not v.oid.startswith(prefix + "."):
            continue  # an empty table: the walk reports the prefix itself
        col, index = (int(x) for x in v.oid.split(".")[-2:])
        table.setdefault(index, {})[col] = v
    return table


def names():
    return {i: cols[4].str for i, cols in rows(4).items()}


def listing_reads(daemon):
    return daemon.output().count(LISTING_READ)


def test_rows_and_package_states(bed):
    write_db(WORKED_EXAMPLE,
             ("libfoo", "bindings for KYQ tools", "1.0"),  # recognised by no filter
             ("e1000g", "VOR gigabit driver", "2.1"),
             ("KYQtarn", "user-mode driver", "3.0"),
             ("VORlynx3", "network driver", "4.0,REV=1"))
    tarnd = start_named(bed, "tarnd")
    bed.write_persistent("defaultPollFreq(sec) 5\n")
    bed.start_master()
    bed.start_daemon()
    table = rows()
    assert sorted(table) == [1, 2, 3, 4]
    assert sorted(table[1]) == list(range(1, 10))
    example = table[1]
    assert [example[c].int for c in (1, 2, 3)] == [1, 2, 3], "the daemon itself runs"
    assert [example[c].str for c in (4, 5, 6, 7, 8, 9)] == \
        ["KYQtem", "Host agent for the platform\n", "", "", "7.9.0", ""]
    assert [(table[i][4].str, table[i][3].int, table[i][2].int) for i in (2, 3, 4)] == \
        [("e1000g", 2, 1), ("KYQtarn", 2, 2), ("VORlynx3", 2, 3)]
    assert table[2][5].str == "gigabit driver\n", "the text after the match"

    tarnd.kill()
    tarnd.wait()
    wait_for(lambda: rows(2)[3][2].int == 3, timeout=15, what="tarnd seen stopped")


def test_set_matrix(bed):
    write_db(*[("KYQvane%d" % i, "utility %d" % i, "1.%d" % i) for i in range(10)])
    bed.start_master()
    bed.start_daemon()
    col = lambda c, i=1: ENTRY + ".%d.%d" % (c, i)
    set_((col(3), "i", 4))
    assert get(col(3)).int == 4
    for bad in (0, 6):
        assert set_error((col(3), "i", bad)) == "badValue"
    assert set_error((col(3), "s", "4")) == "wrongType"
    assert get(col(3)).int == 4, "refused SETs change nothing"

    set_((col(5), "s", "d" * 127))
    assert get(col(5)).str == "d" * 127
    assert set_error((col(5), "s", "d" * 128)) == "wrongLength"
    assert set_error((col(5), "i", 1)) == "wrongType"
    set_((col(7), "s", "l" * 255))
    assert get(col(7)).str == "l" * 255
    assert set_error((col(7), "s", "l" * 256)) == "wrongLength"
    assert set_error((col(7), "i", 1)) == "wrongType"

    assert set_error((col(4), "s", "other")) == "notWritable"
    for c, kind, value in ((1, "i", 9), (2, "i", 9), (6, "s", "x"), (8, "s", "9.9"),
                           (9, "s", "x")):
        set_((col(c), kind, value))
    assert [get(col(c)).str for c in (4, 6, 8, 9)] == ["KYQvane0", "", "1.0", ""]
    assert [get(col(c)).int for c in (1, 2)] == [1, 1]
    assert set_error((col(3, 42), "i", 1)) == "noCreation"
    assert "No Such Instance" in get(col(3, 42)).text


def test_edits_follow_the_package_until_a_restart(bed):
    db = [("KYQvane", "utility", "1.0"), ("KYQsorrel", "sorrel", "2.0"), WORKED_EXAMPLE]
    write_db(*db)
    bed.write_persistent("defaultPollFreq(sec) 5\n")
    bed.start_master()
    daemon = bed.start_daemon()
    assert names()[3] == "KYQtem"
    set_((ENTRY + ".3.3", "i", 5))
    set_((ENTRY + ".5.3", "s", "edited"))
    assert [get(ENTRY + ".%d.3" % c).str for c in (3, 5)] == ["5", "edited"]

    write_db(("KYQwisp", "new package", "0.1"), *db)
    wait_for(lambda: names().get(4) == "KYQtem", timeout=15, what="the rebuild")
    moved = rows()[4]
    assert (moved[3].int, moved[5].str, moved[7].str) == (5, "edited", "")
    assert rows()[3][4].str == "KYQsorrel" and rows()[3][5].str == "sorrel\n"

    daemon.stop()
    bed.start_daemon()
    fresh = rows()[4]
    assert (fresh[4].str, fresh[3].int, fresh[5].str) == \
        ("KYQtem", 3, "Host agent for the platform\n"), "no edit after a restart"


def test_a_hundred_rows_at_most_numbered_alike_on_each_rebuild(bed):
    write_db(*[("KYQvane%03d" % i, "utility", "1.0") for i in range(1, 121)])
    bed.write_persistent("defaultPollFreq(sec) 5\n")
    bed.start_master()
    daemon = bed.start_daemon("-D", "vorOrblFSinterface")
    first = names()
    assert first == {i: "KYQvane%03d" % i for i in range(1, 101)}
    next_index = get(ROOT + ".2.7.1.0")
    if "No Such Object" not in next_index.text:  # served by the status group
        assert next_index.int == 101
    reads = listing_reads(daemon)
    wait_for(lambda: listing_reads(daemon) > reads, timeout=10, what="a timed rebuild")
    assert names() == first


def test_polling_off_walks_rebuild_at_most_every_fifteen_seconds(bed):
    write_db(("KYQvane", "a", "1"))
    bed.start_master()
    bed.start_daemon()
    write_db(("KYQvane", "a", "1"), ("KYQvane2", "b", "1"))
    # a walk rebuilds once the last rebuild (at start-up) is 15 s old
    wait_for(lambda: 2 in names(), timeout=20, interval=0.5, what="the on-demand rebuild")
    rebuilt = time.monotonic()
    write_db(("KYQvane", "a", "1"), ("KYQvane2", "b", "1"), ("KYQvane3", "c", "1"))
    time.sleep(max(0.0, rebuilt + 10 - time.monotonic()))
    assert 3 not in names()
    time.sleep(max(0.0, rebuilt + 15.5 - time.monotonic()))
    assert names().get(3) == "KYQvane3"


def test_polling_on_walks_never_read_the_listing(bed):
    write_db(("libfoo", "nothing of ours", "1.0"))
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master()
    daemon = bed.start_daemon("-D", "vorOrblFSinterface")
    assert listing_reads(daemon) == 1, "the start-up refresh"
    assert not getnext(TABLE).oid.startswith(TABLE + "."), "an empty table"
    write_db(("KYQvane", "a", "1"))
    assert names() == {} and names() == {}
    assert listing_reads(daemon) == 1
