# SPDX-License-Identifier: Apache-2.0
"""The software version table through a real master: rows from a package
database written by the test, package states, the SET matrix, operator
edits across rebuilds and restarts, when the listing is read, and the
operator's watch list. This kernel has no loadable modules: a test that
needs a module list binds a stand-in of its own over modinfo."""

import os
import shutil
import subprocess

import pytest

from conftest import (BUILD, ROOT, SOURCE, Process, check_walk_rebuilds, get, getnext, set_,
                      set_error, table_rows, wait_for)

TABLE = ROOT + ".2.7.2"
ENTRY = TABLE + ".1"
DPKG_STATUS = "/var/lib/dpkg/status"
WORKED_EXAMPLE = ("KYQtem", "Host agent for the platform", "7.9.0,REV=2007.11.15")


@pytest.fixture(autouse=True)
def package_db(bed):
    bed.mount_tmpfs("/var/lib/dpkg")  # the tests' own package database


def write_db(*packages):
    with open(DPKG_STATUS, "w") as f:
        for name, synopsis, version in packages:
            f.write("Package: %s\nStatus: install ok installed\nArchitecture: amd64\n"
                    "Version: %s\nDescription: %s\n more text\n\n" % (name, version, synopsis))


def names():
    return {i: cols[4].str for i, cols in table_rows(ENTRY, 4).items()}


def test_rows_states_set_matrix_and_edits_across_rebuilds_and_restarts(bed):
    db = [WORKED_EXAMPLE, ("libfoo", "bindings for KYQ tools", "1.0"),  # no filter's
          ("e1000g", "VOR gigabit driver", "2.1"), ("KYQtarn", "user-mode driver", "3.0"),
          ("VORlynx3", "network driver", "4.0,REV=1")]
    write_db(*db)
    shutil.copy("/bin/sleep", "/tmp/tarnd")  # a process named like the package
    tarnd = Process(["/tmp/tarnd", "600"], "/var/log/tarnd.out")
    bed.daemons.append(tarnd)
    bed.write_persistent("defaultPollFreq(sec) 5\n")
    bed.start_master()
    d = bed.start_daemon()
    table = table_rows(ENTRY)
    assert sorted(table) == [1, 2, 3, 4] and sorted(table[1]) == list(range(1, 10))
    assert [table[1][c].int for c in (1, 2, 3)] == [1, 2, 3], "the daemon itself runs"
    assert [table[1][c].str for c in (4, 5, 6, 7, 8, 9)] == \
        ["KYQtem", "Host agent for the platform\n", "", "", "7.9.0", ""]
    assert [(table[i][4].str, table[i][3].int, table[i][2].int) for i in (2, 3, 4)] == \
        [("e1000g", 2, 1), ("KYQtarn", 2, 2), ("VORlynx3", 2, 3)]
    assert table[2][5].str == "gigabit driver\n", "the text after the match"

    col = lambda c, i=1: ENTRY + ".%d.%d" % (c, i)
    set_((col(3), "i", 5))
    for bad in (0, 6):
        assert set_error((col(3), "i", bad)) == "badValue"
    assert set_error((col(3), "s", "4")) == "wrongType"
    for c, limit in ((5, 127), (7, 255)):
        set_((col(c), "s", "d" * limit))
        assert set_error((col(c), "s", "d" * (limit + 1))) == "wrongLength"
        assert set_error((col(c), "i", 1)) == "wrongType"
    assert set_error((col(4), "s", "other")) == "notWritable"
    for c, kind, value in ((1, "i", 9), (2, "i", 9), (6, "s", "x"), (8, "s", "9.9"),
                           (9, "s", "x")):
        set_((col(c), kind, value))
    assert [v.text.strip('"') for v in get(*(col(c) for c in (1, 2, 4, 6, 8, 9)))] == \
        ["1", "2", "KYQtem", "", "7.9.0", ""], "SETs of read-only columns change nothing"
    assert set_error((col(3, 42), "i", 1)) == "noCreation"
    assert "No Such Instance" in get(col(3, 42)).text

    # A package ahead of it: the edits follow KYQtem to row 2; tarnd stops.
    write_db(("KYQwisp", "new package", "0.1"), *db)
    tarnd.stop()
    wait_for(lambda: names().get(2) == "KYQtem", timeout=15, what="the rebuild")
    wait_for(lambda: table_rows(ENTRY, 2)[4][2].int == 3, timeout=15, what="tarnd seen stopped")
    row = table_rows(ENTRY)[2]
    assert (row[3].int, row[5].str, row[7].str) == (5, "d" * 127, "d" * 255)
    d.stop()
    bed.start_daemon()
    row = table_rows(ENTRY)[2]
    assert (row[4].str, row[3].int, row[5].str, row[7].str) == \
        ("KYQtem", 3, "Host agent for the platform\n", ""), "no edit after a restart"


def test_polling_off_walks_rebuild_at_most_every_fifteen_seconds(bed):
    write_db(("libfoo", "nothing of ours", "1.0"))
    bed.start_master()
    bed.start_daemon()
    assert not getnext(TABLE).oid.startswith(TABLE + "."), "an empty table"
    dbs = [[("KYQvane", "a", "1")], [("KYQvane", "a", "1"), ("KYQsorrel", "b", "1")]]
    check_walk_rebuilds(15, lambda n: write_db(*dbs[n]),
                        lambda n: list(names().values()) == [p[0] for p in dbs[n]])


def test_polling_on_walks_never_read_the_listing_and_rows_stop_at_a_hundred(bed):
    write_db(*[("KYQvane%03d" % i, "utility", "1.0") for i in range(1, 121)])
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master()
    daemon = bed.start_daemon("-D", "vorOrblFSinterface")
    first = names()
    assert first == {i: "KYQvane%03d" % i for i in range(1, 101)}
    assert get(ROOT + ".2.7.1.0").int == 101
    write_db(("KYQother", "a", "1"))
    assert names() == first and names() == first
    assert daemon.output().count("refresh_refresh_SwverLoad_CB: Enter") == 1, "start-up's only"


def test_watch_list_from_the_packaged_file_and_bad_lines(bed):
    write_db(("temhostd", "host agent", "1.0-1"), ("snmpd", "SNMP agent", "5.9.3+dfsg-2"),
             ("sleeper", "never runs", "2.0"), ("dummy-dkms", "a module", "3.0"),
             ("KYQvane", "VOR utility", "4.0"), ("other", "not watched", "1.0"))
    with open(os.path.join(SOURCE, "packaging", "temhostd.conf")) as f:
        packaged = f.read()
    bad = ["7 sleeper", "agent", "3 sleeper pid 1"]  # kind, prefix, check word
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write(packaged + "".join("softwareWatch %s\n" % b for b in bad) +
                "softwareWatch 4 sleeper process nosuchdaemon\n"
                "softwareWatch driver dummy module dummymod\nsoftwareWatch 1 KYQ\n")
    # a module list holding dummymod, bound over the stand-in in this private host
    with open("/tmp/modinfo", "w") as f:
        f.write("#!/bin/sh\necho ' Id Loadaddr   Size Info Rev Module Name'\n"
                "echo '  1 c0a00000  f5000    -   1  dummymod (dummymod)'\n")
    os.chmod("/tmp/modinfo", 0o755)
    modinfo = os.path.join(BUILD, "libexec", "temhostd", "modinfo")
    subprocess.run(["mount", "--bind", "/tmp/modinfo", modinfo], check=True)
    bed.mounts.append(modinfo)
    bed.start_master()
    daemon = bed.start_daemon()
    rows = [(c[4].str, c[3].int, c[2].int, c[8].str) for _, c in sorted(table_rows(ENTRY).items())]
    assert rows == [("KYQvane", 4, 1, "4.0"), ("temhostd", 3, 2, "1.0-1"),
                    ("snmpd", 5, 2, "5.9.3+dfsg"), ("sleeper", 4, 3, "2.0"),
                    ("dummy-dkms", 2, 2, "3.0")]
    for n, line in enumerate(bad, packaged.count("\n") + 1):
        assert daemon.output().count("/etc/snmp/temhostd.conf: line %d: Error: softwareWatch %s:"
                                     % (n, line)) == 1, daemon.output()
