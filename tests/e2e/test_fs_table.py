"""The file system table, through a real master: figures, walk order,
errors and the on-demand rebuild while polling is off."""

import os
import subprocess
import time

from conftest import AGENT, ROOT, get, getnext, parse_values, set_, set_error, tool, walk

TABLE = ROOT + ".2.4.1"
ENTRY = TABLE + ".1"
POLL = ROOT + ".2.1.4.1.0"


def rows():
    """{index: [column 1..7 values]} from a walk, checking its order."""
    values = walk(TABLE)
    oids = [tuple(int(x) for x in v.oid.split(".")) for v in values]
    assert oids == sorted(oids), "the walk comes in OID order: column by column"
    table = {}
    for v in values:
        column, index = (int(x) for x in v.oid.split(".")[-2:])
        table.setdefault(index, {})[column] = v
    for index, cols in table.items():
        assert sorted(cols) == list(range(1, 8)), "seven columns in row %d" % index
    return table


def described(table):
    return {cols[2].str: index for index, cols in table.items()}


def fill(path, mb):
    subprocess.run(["dd", "if=/dev/zero", "of=" + os.path.join(path, "blob"), "bs=1M",
                    "count=%d" % mb, "status=none"], check=True)


def test_rows_figures_and_order(bed):
    bed.mount_tmpfs("/mnt/fs-a", 64)
    bed.mount_tmpfs("/mnt/fs-b", 32)
    fill("/mnt/fs-b", 16)
    bed.start_master()
    bed.start_daemon()
    table = rows()
    assert sorted(table) == list(range(len(table))), "indexes 0..n-1 without gaps"
    names = described(table)
    a, b = names["tmpfs On /mnt/fs-a"], names["tmpfs On /mnt/fs-b"]
    assert a < b, "mount-table order"
    assert [table[a][c].int for c in (1, 3, 4, 5)] == [a, 64, 0, 0]
    assert [table[b][c].int for c in (1, 3, 4, 5)] == [b, 32, 16, 51]
    st = os.statvfs("/mnt/fs-b")
    assert table[b][6].int == st.f_files
    assert table[b][7].int == st.f_files - st.f_ffree
    # proc is the provider's own exclusion, the kernel-interface types the
    # mount-table reader's; their device names are their type names here
    for pseudo in ("proc On /proc", "sysfs On /sys", "cgroup On ", "cgroup2 On ", "devpts On "):
        assert not any(d.startswith(pseudo) for d in names), pseudo


def test_missing_rows_and_sets(bed):
    bed.mount_tmpfs("/mnt/fs-a", 8)
    bed.start_master()
    bed.start_daemon()
    index = described(rows())["tmpfs On /mnt/fs-a"]
    missing = get(ENTRY + ".3.9999")
    assert missing.kind == "" and "No Such Instance" in missing.text
    set_((ENTRY + ".3.%d" % index, "i", 1))
    assert get(ENTRY + ".3.%d" % index).int == 8, "a SET changes nothing"
    assert set_error((ENTRY + ".3.9999", "i", 1)) == "noCreation"


def test_polling_off_rebuilds_on_demand_at_most_every_ten_seconds(bed):
    bed.start_master()
    bed.start_daemon()
    start = time.monotonic()
    rows()  # the first walk rebuilds
    bed.mount_tmpfs("/mnt/late", 8)
    time.sleep(max(0.0, start + 8.5 - time.monotonic()))
    assert "tmpfs On /mnt/late" not in described(rows())
    time.sleep(max(0.0, start + 10.5 - time.monotonic()))
    assert "tmpfs On /mnt/late" in described(rows())


def test_polling_on_rebuilds_only_on_the_timer(bed):
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master()
    bed.start_daemon()
    bed.mount_tmpfs("/mnt/late", 8)
    # With polling off the first walk always rebuilds; with it on, never.
    assert "tmpfs On /mnt/late" not in described(rows()), "walks never rebuild"
    set_((POLL, "i", 5))
    time.sleep(5.5)
    assert "tmpfs On /mnt/late" in described(rows()), "the timer did"


def test_getnext_resumes_correctly_from_any_point(bed):
    for i in range(6):
        bed.mount_tmpfs("/mnt/fs-%d" % i, 4)
    bed.start_master()
    bed.start_daemon()
    table = rows()
    order = sorted((tuple(int(x) for x in v.oid.split(".")), v.text)
                   for cols in table.values() for v in cols.values())
    entry = tuple(int(x) for x in ENTRY.split("."))
    last = max(table)

    def expected_after(oid):
        return next(((o, t) for o, t in order if o > oid), None)

    starts = [entry[:-1], entry, entry + (0,), entry + (3,), entry + (3, 2), entry + (3, 2, 9),
              entry + (4, last), entry + (7, last), entry + (5, 2 ** 31 - 1), entry + (5, 2 ** 32 - 1)]
    for start in starts:
        got = getnext(".".join(map(str, start)))
        want = expected_after(start)
        if want is None:
            assert not got.oid.startswith(TABLE + "."), start
        else:
            assert (got.oid, got.text) == (".".join(map(str, want[0])), want[1]), start
    # one message naming rows far apart: every varbind gets its own next row
    many = [entry + (6, last - 1), entry + (2, 0), entry + (3, last)]
    got = parse_values(tool("snmpgetnext", AGENT, *(".".join(map(str, o)) for o in many)))
    assert [v.oid for v in got] == [".".join(map(str, expected_after(o)[0])) for o in many]
    # a bulk walk sees exactly what a plain walk sees
    assert [(v.oid, v.text) for v in walk(TABLE, bulk=True)] == \
        [(v.oid, v.text) for v in walk(TABLE)]
