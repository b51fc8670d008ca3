# SPDX-License-Identifier: Apache-2.0
"""The file system table through a real master: figures, order, GETNEXT
from any point, refused requests and the on-demand rebuild while polling
is off (polling on: test_daemon.py's refresh alarm test)."""

import os
import subprocess

from conftest import ROOT, check_walk_rebuilds, get, getnext, set_, set_error, table_rows, walk

TABLE = ROOT + ".2.4.1"
ENTRY = TABLE + ".1"


def described(table):
    return {cols[2].str: index for index, cols in table.items()}


def oid_tuple(oid):
    return tuple(int(x) for x in oid.split("."))


def test_rows_figures_order_getnext_and_refusals(bed):
    bed.mount_tmpfs("/mnt/fs-a", 64)
    bed.mount_tmpfs("/mnt/fs-b", 32)
    for i in range(4):
        bed.mount_tmpfs("/mnt/fs-%d" % i, 4)
    subprocess.run(["dd", "if=/dev/zero", "of=/mnt/fs-b/blob", "bs=1M", "count=16",
                    "status=none"], check=True)
    # Polling on: the list built at start-up stays, so that the host's own
    # file systems read the same in every walk and GETNEXT below.
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master()
    bed.start_daemon()
    table = table_rows(ENTRY)
    assert sorted(table) == list(range(len(table))), "indexes 0..n-1 without gaps"
    assert all(sorted(cols) == list(range(1, 8)) for cols in table.values()), "seven columns"
    names = described(table)
    a, b = names["tmpfs On /mnt/fs-a"], names["tmpfs On /mnt/fs-b"]
    assert a < b, "mount-table order"
    assert [table[a][c].int for c in (1, 3, 4, 5)] == [a, 64, 0, 0]
    assert [table[b][c].int for c in (1, 3, 4, 5)] == [b, 32, 16, 51]
    st = os.statvfs("/mnt/fs-b")
    assert [table[b][6].int, table[b][7].int] == [st.f_files, st.f_files - st.f_ffree]
    # proc is the provider's own exclusion, the kernel-interface types the
    # mount-table reader's; their device names are their type names here
    for pseudo in ("proc On /proc", "sysfs On /sys", "cgroup On ", "cgroup2 On ", "devpts On "):
        assert not any(d.startswith(pseudo) for d in names), pseudo

    # GETNEXT from any point, also between rows and past the last
    order = sorted((oid_tuple(v.oid), v.text) for cols in table.values() for v in cols.values())
    entry, last = oid_tuple(ENTRY), max(table)

    def after(oid):
        return next((".".join(map(str, o)), t) for o, t in order + [((9,), None)] if o > oid)

    for start in [entry[:-1], entry, entry + (0,), entry + (3,), entry + (3, 2),
                  entry + (3, 2, 9), entry + (4, last), entry + (5, 2 ** 31 - 1),
                  entry + (5, 2 ** 32 - 1), entry + (7, last)]:
        got = getnext(".".join(map(str, start)))
        want = after(start)
        if want[1] is None:
            assert not got.oid.startswith(TABLE + "."), start
        else:
            assert (got.oid, got.text) == want, start
    # one message naming rows far apart: every varbind gets its own next row
    many = [entry + (6, last - 1), entry + (2, 0), entry + (3, last)]
    got = getnext(*(".".join(map(str, o)) for o in many))
    assert [v.oid for v in got] == [after(o)[0] for o in many]
    assert [(v.oid, v.text) for v in walk(TABLE, bulk=True)] == \
        [(v.oid, v.text) for v in walk(TABLE)]

    assert "No Such Instance" in get(ENTRY + ".3.9999").text
    set_((ENTRY + ".3.%d" % a, "i", 1))
    assert get(ENTRY + ".3.%d" % a).int == 64, "a SET changes nothing"
    assert set_error((ENTRY + ".3.9999", "i", 1)) == "noCreation"


def test_polling_off_rebuilds_on_demand_at_most_every_ten_seconds(bed):
    bed.start_master()
    bed.start_daemon()
    mount = "/mnt/late-%d"
    check_walk_rebuilds(10, lambda n: bed.mount_tmpfs(mount % n, 8),
                        lambda n: "tmpfs On " + mount % n in described(table_rows(ENTRY, 2)))
