# SPDX-License-Identifier: Apache-2.0
"""The file system, processor and software tables through a real master:
rows, figures, GETNEXT from any point, refusals, SETs and edits, and when
each is rebuilt or sampled."""

import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time

import pytest

from conftest import (BUILD, PERSIST_FILE, ROOT, SOURCE, Process, check_walk_rebuilds, get,
                      get_ms, getnext, gets_in_usual_time, set_, set_error, table_rows, wait_for,
                      walk)

FS_TABLE, CPU_ENTRY, SW_TABLE = ROOT + ".2.4.1", ROOT + ".2.3.1.1", ROOT + ".2.7.2"
FS_ENTRY, SW_ENTRY = FS_TABLE + ".1", SW_TABLE + ".1"
TELNET = ROOT + ".2.2.5.0"
DPKG_STATUS = "/var/lib/dpkg/status"
WORKED_EXAMPLE = ("KYQtem", "Host agent for the platform", "7.9.0,REV=2007.11.15")


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
    table = table_rows(FS_ENTRY)
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
    entry, last = oid_tuple(FS_ENTRY), max(table)

    def after(oid):
        return next((".".join(map(str, o)), t) for o, t in order + [((9,), None)] if o > oid)

    for start in [entry[:-1], entry, entry + (0,), entry + (3,), entry + (3, 2),
                  entry + (3, 2, 9), entry + (4, last), entry + (5, 2 ** 31 - 1),
                  entry + (5, 2 ** 32 - 1), entry + (7, last)]:
        got = getnext(".".join(map(str, start)))
        want = after(start)
        if want[1] is None:
            assert not got.oid.startswith(FS_TABLE + "."), start
        else:
            assert (got.oid, got.text) == want, start
    # one message naming rows far apart: every varbind gets its own next row
    many = [entry + (6, last - 1), entry + (2, 0), entry + (3, last)]
    got = getnext(*(".".join(map(str, o)) for o in many))
    assert [v.oid for v in got] == [after(o)[0] for o in many]
    assert [(v.oid, v.text) for v in walk(FS_TABLE, bulk=True)] == \
        [(v.oid, v.text) for v in walk(FS_TABLE)]

    assert "No Such Instance" in get(FS_ENTRY + ".3.9999").text
    set_((FS_ENTRY + ".3.%d" % a, "i", 1))
    assert get(FS_ENTRY + ".3.%d" % a).int == 64, "a SET changes nothing"
    assert set_error((FS_ENTRY + ".3.9999", "i", 1)) == "noCreation"


def test_polling_off_rebuilds_on_demand_at_most_every_ten_seconds(bed):
    bed.start_master()
    d = bed.start_daemon()
    mount = "/mnt/late-%d"
    check_walk_rebuilds(10, lambda n: bed.mount_tmpfs(mount % n, 8),
                        lambda n: "tmpfs On " + mount % n in described(table_rows(FS_ENTRY, 2)))
    bed.hang_mount("/mnt/hung")  # while the daemon runs: met by one rebuild, then skipped
    wait_for(lambda: table_rows(FS_ENTRY, 2) and "/mnt/hung does not" in d.output(), 30, 1)
    gets_in_usual_time(FS_ENTRY + ".3.0", 11)  # GETs rebuild on demand too
    assert d.output().count("File system /mnt/hung does not answer within 5.0 s") == 1


def processes():
    """(pid, parent, state, command line) of every process."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/stat" % pid) as f, open("/proc/%s/cmdline" % pid, "rb") as c:
                stat = f.read().rsplit(")", 1)[1].split()
                yield int(pid), int(stat[1]), stat[0], c.read()
        except OSError:
            pass


def test_hung_mounts_and_a_stuck_ps_hold_nothing_up(bed):
    """Polling every second: a mount that hangs from the start beside 40
    live ones answering after 20 ms each, a ps that never ends (nor does
    what it starts), then 100 more mounts hanging and a new mount in place
    of the first hung one."""
    write_db(("temhostd", "host agent", "1.0"))
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write("softwareWatch agent temhostd process temhostd\n")
    with open("/tmp/ps", "w") as f:
        f.write("#!/bin/sh\nsleep 600 &\nwait\n")
    os.chmod("/tmp/ps", 0o755)
    subprocess.run(["mount", "--bind", "/tmp/ps", "/bin/ps"], check=True)
    bed.mounts.append("/bin/ps")
    bed.hang_mount("/mnt/hung-0")
    slow = ["slow On /mnt/slow-%d" % i for i in range(40)]
    bed.slow_mounts([x.split()[-1] for x in slow], 20)
    bed.write_persistent("defaultPollFreq(sec) 1\n")
    bed.start_master()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sock:
        sock.bind("/run/notify")
        sock.settimeout(10)
        start = time.monotonic()
        d = bed.start_daemon(wait=False, wrapper=("env", "NOTIFY_SOCKET=/run/notify"))
        assert sock.recv(256) == b"READY=1" and time.monotonic() - start < 3
    bed.wait_daemon(d)
    status = lambda: table_rows(SW_ENTRY, 2)[1][2].int
    sleeps = lambda: [p for p, _, state, cmd in processes()
                      if cmd == b"sleep\0600\0" and state != "Z"]
    zombies = lambda: {p for p, parent, state, _ in processes() if parent == d.pid and state == "Z"}
    seen = set()
    for _ in range(4):
        assert status() == 1, "no process list, no answer"
        assert len(sleeps()) <= 1, "each killed with its script"
        assert not seen & zombies(), "a killed one is reaped within a second"
        seen = zombies()
        time.sleep(1)
    subprocess.run(["umount", "/bin/ps"], check=True)
    bed.mounts.remove("/bin/ps")
    wait_for(lambda: status() == 2, what="ps back")
    assert sleeps() == []
    assert re.findall(r"Command /bin/ps .*? (did not finish within 500 ms|finishes in time again)",
                      d.output()) == ["did not finish within 500 ms", "finishes in time again"]

    def threads_at_most(hung):
        """A rebuild's 16 threads, one per slow or hung mount, and 16 more
        that may be on their way back from the last rebuild."""
        with open("/proc/%d/status" % d.pid) as f:
            threads = int(re.search(r"Threads:\s+(\d+)", f.read()).group(1))
        assert threads <= 1 + 16 + len(slow) + hung + 16, threads
    listed = lambda: described(table_rows(FS_ENTRY, 2))
    for _ in range(5):  # rebuilds
        rows = listed()
        assert [x for x in slow if x not in rows] == [] and "hung On /mnt/hung-0" not in rows
        threads_at_most(1)
        gets_in_usual_time(FS_ENTRY + ".3.0", 1)
    hung = ["/mnt/hung-%d" % i for i in range(1, 101)]
    for path in hung:
        bed.hang_mount(path)
    wait_for(lambda: d.output().count(" does not answer within 5.0 s") == 101, timeout=30,
             what="the hangs")
    gets_in_usual_time(FS_ENTRY + ".3.0", 3)
    threads_at_most(101)
    rows = listed()
    assert [x for x in slow if x not in rows] == [] and "tmpfs On /var/sma_snmp" in rows
    assert not [x for x in rows if x.startswith("hung On")]
    subprocess.run(["umount", "-l", "/mnt/hung-0"], check=True)
    bed.mount_tmpfs("/mnt/hung-0")
    wait_for(lambda: "tmpfs On /mnt/hung-0" in listed(), timeout=3, what="the new mount")
    stopping = time.monotonic()
    assert d.stop() == 255 and time.monotonic() - stopping < 2, "the calls are not waited for"
    out = d.output()
    assert "Stopping " in out and "Lost the AgentX" not in out
    assert {out.count("File system %s does not" % p) for p in ["/mnt/hung-0", *hung]} == {1}
    assert "/mnt/slow" not in out, "no slow mount logged"
    assert "defaultPollFreq(sec) 1" in open(PERSIST_FILE).read().splitlines()


def cpu_rows():
    """{index: [1-, 5-, 30-, 60-minute average]}, checking the row shape."""
    with open("/sys/devices/system/cpu/present") as f:  # processors 0..n-1
        count = int(f.read().strip().replace(",", "-").split("-")[-1]) + 1
    table = table_rows(CPU_ENTRY)
    assert sorted(table) == list(range(count)), "one row per processor"
    for index, cols in table.items():
        assert sorted(cols) == list(range(1, 7)) and cols[1].int == index
        assert cols[6].text == '""', "empty location: %r" % cols[6]  # printed without a type
    return {index: [cols[c].int for c in range(2, 6)] for index, cols in table.items()}


def test_rows_refusals_and_the_first_averages(bed):
    # Rebuilt every second and reloaded (SIGHUP) every 2 ms: no signal cuts
    # a program's output short, so software rows, telnet and processor
    # states (the busy one's load) never change.
    write_db(WORKED_EXAMPLE, ("VORlynx3", "network driver", "4.0"))
    bed.write_persistent("defaultPollFreq(sec) 1\n")
    bed.start_master()
    cpu = max(os.sched_getaffinity(0))
    busy = subprocess.Popen(["taskset", "-c", str(cpu), "sh", "-c", "while :; do :; done"])
    calm, telnet = threading.Event(), socket.socket()
    try:
        telnet.bind(("127.0.0.1", 23))
        telnet.listen(1)
        daemon = bed.start_daemon()

        def storm():
            while not calm.wait(0.002):
                os.kill(daemon.pid, signal.SIGHUP)
        threading.Thread(target=storm).start()
        rows = names()
        ready = time.monotonic()
        table = cpu_rows()
        assert all(a == [-1, -1, -1, -1] for a in table.values()), "nothing sampled yet"
        last = max(table)
        assert "No Such Instance" in get(CPU_ENTRY + ".2.%d" % (last + 1)).text
        set_((CPU_ENTRY + ".2.0", "i", 50))
        assert get(CPU_ENTRY + ".2.0").int == -1, "a SET changes nothing"
        assert set_error((CPU_ENTRY + ".2.%d" % (last + 1), "i", 50)) == "noCreation"
        # The timer primes 10 s after the start and computes 10 s later
        # (with a 15 s period that would be 30 s); the longer averages wait
        # out their whole span.
        def averaged():
            assert (names(), get(TELNET).int) == (rows, 2)
            loads = cpu_rows()
            return all(a[0] >= 0 for a in loads.values()) and loads
        loads = wait_for(averaged, timeout=40, interval=0.5, what="the first 1-minute averages")
        assert time.monotonic() - ready < 26
        assert all(0 <= one <= 100 and longer == [-1, -1, -1] for one, *longer in loads.values())
        assert loads[cpu][0] >= 80, "the busy processor: %r" % loads
    finally:
        calm.set()
        telnet.close()
        busy.kill()
        busy.wait()
    assert "Orbeline Host Agent:-" not in daemon.output(), "no sample failed"


@pytest.fixture(autouse=True)
def package_db(bed):
    bed.mount_tmpfs("/var/lib/dpkg")  # the tests' own package database


def write_db(*packages):
    with open(DPKG_STATUS, "w") as f:
        for name, synopsis, version in packages:
            f.write("Package: %s\nStatus: install ok installed\nArchitecture: amd64\n"
                    "Version: %s\nDescription: %s\n more text\n\n" % (name, version, synopsis))


def names():
    return {i: cols[4].str for i, cols in table_rows(SW_ENTRY, 4).items()}


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
    table = table_rows(SW_ENTRY)
    assert sorted(table) == [1, 2, 3, 4] and sorted(table[1]) == list(range(1, 10))
    assert [table[1][c].int for c in (1, 2, 3)] == [1, 2, 3], "the daemon itself runs"
    assert [table[1][c].str for c in (4, 5, 6, 7, 8, 9)] == \
        ["KYQtem", "Host agent for the platform\n", "", "", "7.9.0", ""]
    assert [(table[i][4].str, table[i][3].int, table[i][2].int) for i in (2, 3, 4)] == \
        [("e1000g", 2, 1), ("KYQtarn", 2, 2), ("VORlynx3", 2, 3)]
    assert table[2][5].str == "gigabit driver\n", "the text after the match"

    col = lambda c, i=1: SW_ENTRY + ".%d.%d" % (c, i)
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
    wait_for(lambda: table_rows(SW_ENTRY, 2)[4][2].int == 3, timeout=15, what="tarnd seen stopped")
    row = table_rows(SW_ENTRY)[2]
    assert (row[3].int, row[5].str, row[7].str) == (5, "d" * 127, "d" * 255)
    d.stop()
    bed.start_daemon()
    row = table_rows(SW_ENTRY)[2]
    assert (row[4].str, row[3].int, row[5].str, row[7].str) == \
        ("KYQtem", 3, "Host agent for the platform\n", ""), "no edit after a restart"


def test_polling_off_walks_rebuild_at_most_every_fifteen_seconds(bed):
    write_db(("libfoo", "nothing of ours", "1.0"))
    bed.start_master()
    bed.start_daemon()
    assert not getnext(SW_TABLE).oid.startswith(SW_TABLE + "."), "an empty table"
    dbs = [[("KYQvane", "a", "1")], [("KYQvane", "a", "1"), ("KYQsorrel", "b", "1")]]
    check_walk_rebuilds(15, lambda n: write_db(*dbs[n]),
                        lambda n: list(names().values()) == [p[0] for p in dbs[n]])


def test_watch_list_bad_lines_a_hundred_rows_and_polling_on(bed):
    # rows of the filters, then the watch list's: the hundred-row cap covers both
    write_db(*[("KYQvane%03d" % i, "utility", "1.0") for i in range(1, 94)],
             ("temhostd", "host agent", "1.0-1"), ("snmpd", "SNMP agent", "5.9.3+dfsg-2"),
             ("sleeper", "never runs", "2.0"), ("grepper", "runs", "4.0"),
             ("dummy-dkms", "a module", "3.0"), ("scripter", "a script daemon", "1.1"),
             ("lookalike", "never runs", "1.2"), ("other", "one too many", "1.0"))
    # a process whose arguments (not its name) say nginxd, one whose name holds
    # "grep", a script daemon whose name is cut to 15 characters, and beside
    # it a program named with those 15 that exec -a names in full
    shutil.copy("/bin/sleep", "/tmp/grepperd")
    shutil.copy("/bin/sleep", "/tmp/nightly-report-x")
    with open("/tmp/orders-dispatcherd", "w") as f:
        f.write("#!/usr/bin/python3\nimport time\ntime.sleep(600)\n")
    os.chmod("/tmp/orders-dispatcherd", 0o755)
    for argv in (["bash", "-c", "exec -a nginxd sleep 600"], ["/tmp/grepperd", "600"],
                 ["/tmp/orders-dispatcherd"],
                 ["bash", "-c", "exec -a nightly-report-daemon /tmp/nightly-report-x 600"]):
        bed.daemons.append(Process(argv, "/var/log/watched.out"))
    with open(os.path.join(SOURCE, "packaging", "temhostd.conf")) as f:
        packaged = f.read()
    bad = ["7 sleeper", "agent", "3 sleeper pid 1"]  # kind, prefix, check word
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write(packaged + "".join("softwareWatch %s\n" % b for b in bad) +
                "softwareWatch 4 sleeper process nginxd\nsoftwareWatch 4 grepper process grepperd\n"
                "softwareWatch driver dummy module dummymod\n"
                "softwareWatch 5 scripter process orders-dispatcherd\n"
                "softwareWatch 5 lookalike process nightly-report-daemon\nsoftwareWatch 1 KYQ\n"
                "softwareWatch 5 other\n")
    # a module list holding dummymod, bound over the stand-in in this private host
    with open("/tmp/modinfo", "w") as f:
        f.write("#!/bin/sh\necho ' Id Loadaddr   Size Info Rev Module Name'\n"
                "echo '  1 c0a00000  f5000    -   1  dummymod (dummymod)'\n")
    os.chmod("/tmp/modinfo", 0o755)
    modinfo = os.path.join(BUILD, "libexec", "temhostd", "modinfo")
    subprocess.run(["mount", "--bind", "/tmp/modinfo", modinfo], check=True)
    bed.mounts.append(modinfo)
    bed.write_persistent("defaultPollFreq(sec) 900\n")
    bed.start_master()
    daemon = bed.start_daemon("-D", "vorOrblFSinterface")
    table = table_rows(SW_ENTRY)
    assert sorted(table) == list(range(1, 101)) and get(ROOT + ".2.7.1.0").int == 101
    assert [(table[i][4].str, table[i][3].int, table[i][2].int, table[i][8].str)
            for i in range(94, 101)] == [
        ("temhostd", 3, 2, "1.0-1"), ("snmpd", 5, 2, "5.9.3+dfsg"), ("sleeper", 4, 3, "2.0"),
        ("grepper", 4, 2, "4.0"), ("dummy-dkms", 2, 2, "3.0"), ("scripter", 5, 2, "1.1"),
        ("lookalike", 5, 3, "1.2")]
    for n, line in enumerate(bad, packaged.count("\n") + 1):
        assert daemon.output().count("/etc/snmp/temhostd.conf: line %d: Error: softwareWatch %s:"
                                     % (n, line)) == 1, daemon.output()
    # polling on: walks never read the listing again
    write_db(("KYQother", "a", "1"))
    assert names() == names() == {i: table[i][4].str for i in table}
    assert daemon.output().count("refresh_refresh_SwverLoad_CB: Enter") == 1, "start-up's only"


# systemctl stood in for the real one (the bed has no systemd): it answers
# "show" from /run/units ("UNIT STATE" lines; a unit not listed is not
# found), records each call, and never ends while /run/systemctl.hangs exists.
SYSTEMCTL = """#!/bin/sh
echo "$*" >>/run/systemctl.calls
if [ -e /run/systemctl.hangs ]; then sleep 600 & wait; fi
shift 3
sep=
for unit; do
    printf "$sep"; sep='\\n'
    state=$(awk -v u="$unit" '$1 == u { print $2 }' /run/units)
    if [ -n "$state" ]; then load=loaded; else load=not-found state=inactive; fi
    printf 'LoadState=%s\\nActiveState=%s\\n' "$load" "$state"
done
"""


def test_watched_units_from_one_systemctl_per_rebuild_and_one_that_hangs(bed):
    """Polling every second: units active, one failing, one unknown to
    systemd; then a systemctl that never returns."""
    write_db(("nginx-core", "web server", "1.22"), ("cron", "daemon", "3.0"),
             ("ghost", "gone", "1.0"))
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write("softwareWatch agent nginx unit nginx\nsoftwareWatch 5 cron unit cron.service\n"
                "softwareWatch 5 ghost unit ghost\nsoftwareWatch 5 bad unit it's\n")
    with open("/run/units", "w") as f:
        f.write("nginx.service active\ncron.service reloading\n")
    with open("/tmp/systemctl", "w") as f:
        f.write(SYSTEMCTL)
    os.chmod("/tmp/systemctl", 0o755)
    subprocess.run(["mount", "--bind", "/tmp/systemctl", "/bin/systemctl"], check=True)
    bed.mounts.append("/bin/systemctl")
    bed.write_persistent("defaultPollFreq(sec) 1\n")
    bed.start_master()
    d = bed.start_daemon("-D", "vorOrblFSinterface")

    def states():
        return {cols[4].str: cols[2].int for cols in table_rows(SW_ENTRY).values()}
    assert states() == {"nginx-core": 2, "cron": 2, "ghost": 1}
    with open("/run/units", "w") as f:
        f.write("nginx.service failed\ncron.service active\n")
    wait_for(lambda: states()["nginx-core"] == 3, what="nginx failed")
    assert states() == {"nginx-core": 3, "cron": 2, "ghost": 1}
    out = d.output()
    assert "line 4: Error: softwareWatch 5 bad unit it's: not a unit name" in out, out
    with open("/run/systemctl.calls") as f:
        calls = f.read().splitlines()
    rebuilds = d.output().count("refresh_refresh_SwverLoad_CB: Enter")
    assert set(calls) == {"show --property=LoadState,ActiveState -- nginx.service cron.service "
                          "ghost.service"}
    assert rebuilds - 1 <= len(calls) <= rebuilds, "one call per rebuild, all units at once"
    open("/run/systemctl.hangs", "w").close()
    wait_for(lambda: set(states().values()) == {1}, what="states unknown")
    # each rebuild waits out the deadline (500 ms), inside the master's 1 s
    for _ in range(30):
        ms, reply = get_ms(SW_ENTRY + ".2.1")
        assert reply.endswith(b"\x02\x01\x01") and ms < 1000, (ms, reply)
        time.sleep(0.1)
    os.unlink("/run/systemctl.hangs")
    wait_for(lambda: states()["nginx-core"] == 3, what="systemctl back")
    assert re.findall(r"Command /bin/systemctl .*? (did not finish within 500 ms|finishes in time "
                      r"again)", d.output()) == ["did not finish within 500 ms",
                                                 "finishes in time again"]


def test_file_systems_excluded_by_type_and_path_hung_one_included(bed):
    """The same mounts without and with the exclusions: the rows left keep
    their order and are numbered from 0 again; an excluded hung mount is
    never asked (no log line, no wait)."""
    for path in ("/mnt/keep-a", "/mnt/docker/x1", "/mnt/keep-b", "/mnt/docker/x2/merged"):
        bed.mount_tmpfs(path, 4)
    os.makedirs("/mnt/ram", exist_ok=True)
    subprocess.run(["mount", "-t", "ramfs", "ramfs", "/mnt/ram"], check=True)
    bed.mounts.append("/mnt/ram")
    bed.write_persistent("defaultPollFreq(sec) 1\n")
    bed.start_master()
    d = bed.start_daemon()
    before = [desc for _, desc in sorted((i, c[2].str) for i, c in table_rows(FS_ENTRY).items())]
    assert {"tmpfs On /mnt/docker/x1", "ramfs On /mnt/ram", "tmpfs On /mnt/keep-b"} <= set(before)
    d.stop()
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write("fsExcludeType nsfs, ramfs\nfsExcludePath /mnt/docker/*\nfsExcludeType over*\n"
                "fsExcludePath docker\n")
    bed.hang_mount("/mnt/docker/hung")
    d = bed.start_daemon()
    table = table_rows(FS_ENTRY)
    kept = [x for x in before if not re.search(r" On /mnt/(docker/|ram$)", x)]
    assert [table[i][2].str for i in sorted(table)] == kept
    assert sorted(table) == list(range(len(kept))), "indexes 0..n-1"
    assert [table[i][1].int for i in sorted(table)] == sorted(table)
    gets_in_usual_time(FS_ENTRY + ".3.0", 3)  # three rebuilds
    out = d.output()
    assert "/mnt/docker/hung" not in out, out
    assert "line 3: Error: fsExcludeType: not a file system type \"over*\"" in out, out
    assert "line 4: Error: fsExcludePath: pattern matches no mount point" in out, out
