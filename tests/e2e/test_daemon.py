# SPDX-License-Identifier: Apache-2.0
"""The daemon's life cycle through a real master: refusals, one instance,
options, signals, systemd, the revision group and its poll period, the
values that outlive a restart, and a whole life under valgrind."""

import os
import random
import re
import signal
import socket
import time

from conftest import (DAEMON, PERSIST_FILE, PID_FILE, ROOT, RUN_MARKER, SAVED_COPY,
                      catches_stop_signals, get, set_, set_error, table_rows, wait_for, walk)

NOBODY = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")
ROLE, DETAIL, POLL, GUID = (ROOT + s for s in (".2.2.6.0", ".2.2.7.0", ".2.1.4.1.0", ".2.10.3.0"))
GUID15 = "g" * 15
OURS = ("defaultPollFreq(sec) ", "hostguid ", "system_role ", "system_role_detail ")
WRITABLE = [(ROOT + ".2.2.6.0", "s", "Web"), (ROOT + ".2.2.7.0", "s", "front end"),
            (ROOT + ".2.8.1.0", "s", "disk replaced"), (ROOT + ".2.8.2.0", "s", "patch 7"),
            (ROOT + ".2.10.3.0", "s", "0123456789ABCDEF"), (ROOT + ".2.1.4.1.0", "i", 30),
            (ROOT + ".2.7.2.1.3.1", "i", 4)]  # a valid SET of each writable object
BANNER = "KY Orbeline host agent[temhostd], Version 2.3"
USAGE = ("Usage: {0} [OPTION]...\n\nOptions:\n  -f         \t\tEnables forking\n"
         "  -s         \t\tEnables Sys Log\n  -l         \t\tEnables File Log\n"
         "  -T\t\t\tDisables Trap\n  -c community_str\tFor local Snmp GET\n"
         "  -v         \t\tPrints version information\n"
         "  -h         \t\tPrint this help and exit\n").format(DAEMON)


def test_refusals_without_root_or_master(bed):
    assert bed.run_daemon("-v", wrapper=NOBODY) == (0, BANNER + "\n", "")
    assert bed.run_daemon("-h", wrapper=NOBODY) == (0, USAGE, "")
    status, _, err = bed.run_daemon(wrapper=NOBODY)
    assert status == 2 and ("\nERROR: Unable to load KY Orbeline Host agent daemon.\n[%s] "
                            "requires root privilages. Login as root and try again!\n"
                            % DAEMON) in err
    assert not os.path.exists(PID_FILE)
    os.makedirs("/var/sma_snmp/cert_indexes")  # the library's, made by the first start ever
    # No master: it exits with these lines alone; a local query or a wait for
    # the master would have logged its own line (timing it fails on a loaded machine).
    status, _, err = bed.run_daemon()
    assert (status, err) == (1, "Starting %s\nError: Could not initialize connection to Master "
                                "SNMP daemon. \nCheck whether the master agent is running.\n"
                             % BANNER)
    assert bed.run_daemon("stray", "-v")[:2] == (1, ""), "the option scan stops at a stray word"


def test_one_instance_revision_group_signals_and_options(bed):
    bed.start_master()
    first = bed.start_daemon("-s", "-l")  # -s wins: nothing goes to the log file
    assert open(PID_FILE).read() == "%d\n" % first.pid
    assert os.stat(PID_FILE).st_mode & 0o777 == 0o644
    status, _, err = bed.run_daemon()
    assert status == 3 and err.endswith(
        "ERROR: temhostd: cannot lock pid file '/var/run/temhostd.pid'\n"
        "ERROR: temhostd: another daemon instance may be running\n")
    assert open(PID_FILE).read() == "%d\n" % first.pid
    revision = [ROOT + ".1.1.0", ROOT + ".1.2.0", ROOT + ".1.3.0", POLL]
    assert [v.int for v in get(*revision)] == [1, 26, 2, 0]
    assert set_error((ROOT + ".1.1.0", "i", 3)) == "notWritable"
    for triple in [(POLL, "i", 60), (POLL, "i", 5), (POLL, "i", 0), (POLL, "s", "60")]:
        assert set_error(triple) == "badValue", "polling stays off: %r" % (triple,)
    first.stop(signal.SIGINT)
    assert not os.path.exists(PID_FILE) and not os.path.exists(SAVED_COPY)
    assert not os.path.exists("/var/log/snmpd.log") and "Starting" not in first.output()

    # unknown letters, library options with arguments, grouped letters and a
    # huge -c: the daemon starts and serves, -D after them still counts
    d = bed.start_daemon("-Q", "-d", "-D", "vorHostd,vorMeMibRevMajor", "-x", "DES", "-Tl",
                         "-c", "x" * 10240, "-Z")
    os.rename("/var/log/snmpd.log", "/var/log/snmpd.log.1")  # as logrotate does
    d.proc.send_signal(signal.SIGHUP)  # reopens the log file, changes nothing else
    wait_for(lambda: os.path.exists("/var/log/snmpd.log"), what="the log file reopened")
    assert get(ROOT + ".1.2.0").int == 26 and open(PID_FILE).read() == "%d\n" % d.pid
    d.stop()
    assert "vorHostd: refreshing data" in open("/var/log/snmpd.log.1").read()
    assert "Stopping %s" % BANNER in open("/var/log/snmpd.log").read()
    status, _, err = bed.run_daemon("-V")  # the library's own version request
    assert status == 0 and "NET-SNMP version" in err
    # -f: the parent leaves at once, the child serves under the pid file's pid
    assert bed.run_daemon("-f")[0] == 0
    pid = int(wait_for(lambda: os.path.exists(PID_FILE) and open(PID_FILE).read().strip(),
                       what="the pid file"))
    wait_for(lambda: get(ROOT + ".1.1.0").text == "1" and catches_stop_signals(pid),
             what="the child")
    os.kill(pid, signal.SIGTERM)
    wait_for(lambda: not os.path.exists(PID_FILE), what="the clean stop")


def test_polling_on_one_refresh_alarm_and_the_stored_period(bed):
    bed.write_persistent("defaultPollFreq(sec) 60\n")
    bed.start_master()
    d = bed.start_daemon("-D", "vorHostd")
    assert get(POLL).int == 60
    for bad in (4, 901, 0):
        assert set_error((POLL, "i", bad)) == "badValue"
    assert set_error((POLL, "s", "30")) == "wrongType"
    bed.mount_tmpfs("/mnt/late", 8)
    fs_names = lambda: {cols[2].str for cols in table_rows(ROOT + ".2.4.1.1", 2).values()}
    assert "tmpfs On /mnt/late" not in fs_names(), "with polling on, walks never rebuild"
    set_((POLL, "i", 5))
    set_((POLL, "i", 900))
    seven = time.monotonic()
    set_((POLL, "i", 7))
    # Exactly one refresh alarm: the first refresh comes 7 s after the SET,
    # alone; the 5 s alarm, had it been left, would come sooner.
    refreshes = lambda: d.output().count("refreshing data")
    before = refreshes()
    wait_for(lambda: refreshes() > before, timeout=30, what="the refresh")
    assert time.monotonic() - seven > 7 and refreshes() == before + 1
    assert "tmpfs On /mnt/late" in fs_names(), "the timer rebuilt the tables"
    set_((POLL, "i", 30))
    d.stop()
    assert "defaultPollFreq(sec) 30" in open(PERSIST_FILE).read().splitlines()


def test_a_stop_signal_at_any_moment_of_start_up_stops_cleanly(bed):
    bed.start_master()
    # A community the master drops: the first refresh's local query waits
    # out its time-out just after "[Ready]".
    for moment in ("Starting", "[Ready]", "refreshing data"):
        if os.path.exists(PERSIST_FILE):
            os.unlink(PERSIST_FILE)
        d = bed.start_daemon("-c", "dropped", "-D", "vorHostd", wait=False)
        wait_for(lambda: moment in d.output(), timeout=10, interval=0.002, what=moment)
        assert d.stop() == 255, (moment, d.output())
        assert ("Stopping %s\n" % BANNER) in d.output(), moment
        assert os.path.exists(PERSIST_FILE), "the final store ran"
        assert not any(map(os.path.exists, (PID_FILE, SAVED_COPY, RUN_MARKER))), moment


def test_systemd_hears_ready_once_the_objects_answer_then_watchdog_and_stopping(bed):
    bed.start_master()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sock:  # systemd's side
        sock.bind("/run/notify")
        sock.settimeout(20)
        d = bed.start_daemon(wait=False, wrapper=(
            "env", "NOTIFY_SOCKET=/run/notify", "WATCHDOG_USEC=2000000"))
        assert sock.recv(256) == b"READY=1"
        assert bed.daemon_answers(d), "READY=1 only once the objects answer"
        ready = time.monotonic()
        assert [sock.recv(256) for _ in range(3)] == [b"WATCHDOG=1"] * 3
        assert 2.5 < time.monotonic() - ready < 5, "a ping at half the 2 s asked for"
        d.proc.send_signal(signal.SIGTERM)
        while sock.recv(256) != b"STOPPING=1":  # a ping may come first; none: time-out
            pass


def our_lines(path=PERSIST_FILE):
    with open(path) as f:
        return [l.rstrip("\n") for l in f if l.startswith(OURS)]


def test_clean_stop_stores_the_values_in_order_and_only_then(bed):
    # a line without a value is skipped; 15 characters are no GUID: the default
    bed.write_persistent("defaultPollFreq(sec) 60\ndefaultPollFreq(sec)\nhostguid %s\n" % GUID15)
    bed.start_master()
    d = bed.start_daemon()
    assert [v.str for v in get(ROLE, DETAIL, POLL, GUID)] == ["", "", "60", "0" * 16]
    # texts that would write lines of their own into the file: refused after
    # the type and length checks, changing nothing
    inject = "\n[snmpd] trap2sink 127.0.0.1:1162 public\ndefaultPollFreq(sec) 1"
    for triple, status in [((DETAIL, "s", "x" + inject), "badValue"),
                           ((ROLE, "s", "Web\nagentxsocket tcp:127.0.0.1:7705"), "badValue"),
                           ((GUID, "s", "0" * 15 + "\r"), "badValue"),
                           ((ROLE, "s", "\n" * 65), "wrongLength")]:
        assert set_error((ROLE, "s", "Web"), triple) == status, triple
    assert [v.str for v in get(ROLE, DETAIL, GUID)] == ["", "", "0" * 16]
    detail = "d" * 511 + "e"
    set_((ROLE, "s", "Web"), (DETAIL, "s", detail), (GUID, "s", "0123456789ABCDEF"))
    # after the start-up read the values live in memory; the saved copy has them
    assert our_lines() == []
    assert our_lines(SAVED_COPY) == ["defaultPollFreq(sec) 60", "hostguid " + GUID15]
    d.stop()
    assert our_lines() == ["defaultPollFreq(sec) 60", "hostguid 0123456789ABCDEF",
                           "system_role Web", "system_role_detail " + detail]
    assert not os.path.exists(PID_FILE) and not os.path.exists(SAVED_COPY)
    bed.start_daemon()
    assert [v.str for v in get(ROLE, DETAIL, POLL, GUID)] == [
        "Web", detail, "60", "0123456789ABCDEF"]


def test_abrupt_ends_roll_back_to_the_last_clean_values(bed):
    guid = "0123456789ABCDEF"
    bed.write_persistent("defaultPollFreq(sec) 60\nsystem_role Steady\nhostguid %s\n" % guid)
    with open(SAVED_COPY, "w") as f:  # left by some older run: a clean start drops it
        f.write("system_role Stale\n")
    bed.start_master("trapsess -v3 -u ops -l noAuthNoPriv 127.0.0.1:1162\n")  # logs the engine ID
    rng = random.Random(11)
    # a quarter during start-up, a quarter while serving, half during the
    # clean stop, which takes only about a millisecond here
    for i in range(20):
        d = bed.start_daemon(wait=False)
        if i % 4 == 0:
            time.sleep(rng.uniform(0.0, 0.15))
        else:
            bed.wait_daemon(d)
            if i % 2:
                d.proc.send_signal(signal.SIGTERM)
                until = time.perf_counter() + rng.uniform(0.0, 0.002)
                while time.perf_counter() < until:
                    pass
        d.stop(signal.SIGKILL)
        d = bed.start_daemon()
        assert [v.str for v in get(ROLE, POLL)] == ["Steady", "60"], i
        d.stop(signal.SIGKILL)
    d = bed.start_daemon()
    d.stop()
    lines = our_lines()
    assert lines[0] == "defaultPollFreq(sec) 60"
    assert lines[-2:] == ["system_role Steady", "system_role_detail Enter System role details"]

    d = bed.start_daemon()
    set_((ROLE, "s", "After"))
    d.stop(signal.SIGKILL)
    d = bed.start_daemon()
    assert get(ROLE).str == "Steady", "the saved copy of the start before"
    d.stop(signal.SIGKILL)
    os.unlink(PID_FILE)  # what a reboot does to the run directory
    bed.start_daemon()
    assert [v.str for v in get(ROLE, POLL, GUID)] == ["Steady", "60", guid], "the marker tells"
    engine_ids = {re.search(r"engine ID (0x\w+)", x.output()).group(1) for x in bed.daemons[-4:]}
    assert len(engine_ids) == 1, "stored at the last clean stop, restored since: %s" % engine_ids


def test_a_whole_life_under_valgrind(bed):
    with open("/var/lib/dpkg/status", "w") as f:
        f.write("Package: KYQtem\nStatus: install ok installed\nVersion: 1.0\n"
                "Description: host agent\n\n")
    bed.write_persistent("defaultPollFreq(sec) 60\n")  # so the poll frequency takes a SET
    bed.start_master()
    d = bed.start_daemon(wrapper=["valgrind", "--leak-check=full", "--track-fds=yes",
                                  "--errors-for-leak-kinds=definite,indirect",
                                  "--error-exitcode=99"], timeout=120)
    assert len(walk(ROOT)) > 20
    for triple in WRITABLE:
        set_(triple)
    status = d.stop(signal.SIGTERM, timeout=120)
    out = d.output()
    assert "ERROR SUMMARY: 0 errors" in out and status != 99, out[-4000:]  # 99: error or leak
    opened = re.search(r"FILE DESCRIPTORS: (\d+) open(?: \((\d+) std\))? at exit", out)
    assert opened and opened.group(1) == (opened.group(2) or "3") == "3", out[-4000:]
