"""The daemon's life cycle and its MIB revision group, through a real master."""

import os
import signal
import time

from conftest import (PERSIST_FILE, PID_FILE, ROOT, SAVED_COPY, catches_stop_signals, get, set_,
                      set_error, walk, wait_for)

NOBODY = 65534
POLL = ROOT + ".2.1.4.1.0"
VERSION_LINE = "KY Orbeline host agent[temhostd], Version 2.3\n"
USAGE = ("Usage: {0} [OPTION]...\n\nOptions:\n"
         "  -f         \t\tEnables forking\n"
         "  -s         \t\tEnables Sys Log\n"
         "  -l         \t\tEnables File Log\n"
         "  -T\t\t\tDisables Trap\n"
         "  -c community_str\tFor local Snmp GET\n"
         "  -v         \t\tPrints version information\n"
         "  -h         \t\tPrint this help and exit\n")
NO_MASTER = ("Error: Could not initialize connection to Master SNMP daemon. \n"
             "Check whether the master agent is running.\n")


def test_revision_group_through_the_master(bed):
    bed.start_master()
    bed.start_daemon()
    assert [v.int for v in get(ROOT + ".1.1.0", ROOT + ".1.2.0", ROOT + ".1.3.0", POLL)] == \
        [1, 26, 2, 0]
    oids = [v.oid for v in walk(ROOT)]
    expected_prefix = [ROOT + ".1.1.0", ROOT + ".1.2.0", ROOT + ".1.3.0", ROOT + ".2.1.4.1.0"]
    assert [o for o in oids if o in expected_prefix] == expected_prefix
    assert oids == sorted(oids, key=lambda o: [int(x) for x in o.split(".")])
    # read-only objects refuse SETs before any handler runs
    assert set_error((ROOT + ".1.1.0", "i", 3)) == "notWritable"


def test_polling_off_refuses_every_poll_frequency_set(bed):
    bed.start_master()
    bed.start_daemon()
    for triple in [(POLL, "i", 60), (POLL, "i", 5), (POLL, "i", 0), (POLL, "s", "60")]:
        assert set_error(triple) == "badValue", triple
    assert get(POLL).int == 0


def test_polling_on_sets_and_stores_the_period(bed):
    bed.write_persistent("defaultPollFreq(sec) 60\n")
    bed.start_master()
    d = bed.start_daemon("-D", "vorHostd")
    assert get(POLL).int == 60
    for bad in (4, 901, 0):
        assert set_error((POLL, "i", bad)) == "badValue"
    assert set_error((POLL, "s", "30")) == "wrongType"
    set_((POLL, "i", 5))
    set_((POLL, "i", 900))
    set_((POLL, "i", 7))
    assert get(POLL).int == 7
    # Exactly one general refresh alarm: over 8 s a 7 s period refreshes
    # once; the 5 s alarm, had it been left, would add one.
    before = d.output().count("refreshing data")
    time.sleep(8)
    assert d.output().count("refreshing data") - before == 1
    set_((POLL, "i", 30))
    assert get(POLL).int == 30

    assert d.stop() is not None
    out = d.output()
    assert "Stopping KY Orbeline host agent[temhostd], Version 2.3" in out
    assert not os.path.exists(PID_FILE) and not os.path.exists(SAVED_COPY)
    with open(PERSIST_FILE) as f:
        lines = f.read().splitlines()
    assert "defaultPollFreq(sec) 30" in lines


def test_version_and_help_need_no_root_and_no_master(bed):
    assert bed.run_daemon("-v", user=NOBODY) == (0, VERSION_LINE, "")
    status, out, err = bed.run_daemon("-h", user=NOBODY)
    assert (status, out, err) == (0, USAGE.format(os.environ["TEMHOSTD_BUILD"] + "/bin/temhostd"),
                                  "")


def test_ordinary_user_is_refused_and_leaves_no_pid_file(bed):
    status, out, err = bed.run_daemon(user=NOBODY)
    assert status == 2
    assert ("\nERROR: Unable to load KY Orbeline Host agent daemon.\n[%s/bin/temhostd] requires "
            "root privilages. Login as root and try again!\n"
            % os.environ["TEMHOSTD_BUILD"]) in err
    assert not os.path.exists(PID_FILE)


def test_no_master_exits_with_status_one(bed):
    status, out, err = bed.run_daemon()
    assert status == 1
    assert NO_MASTER in err


def test_second_instance_is_refused_and_first_pid_file_kept(bed):
    bed.start_master()
    first = bed.start_daemon()
    with open(PID_FILE) as f:
        assert f.read() == "%d\n" % first.pid
    status, out, err = bed.run_daemon()
    assert status == 3
    assert err.endswith("ERROR: temhostd: cannot lock pid file '/var/run/temhostd.pid'\n"
                   "ERROR: temhostd: another daemon instance may be running\n")
    with open(PID_FILE) as f:
        assert f.read() == "%d\n" % first.pid
    assert get(ROOT + ".1.1.0").int == 1


def test_sigint_stops_cleanly(bed):
    bed.start_master()
    d = bed.start_daemon()
    assert os.path.exists(SAVED_COPY) is False  # first start ever: nothing to save
    d.stop(signal.SIGINT)
    assert "Stopping KY Orbeline" in d.output()
    assert not os.path.exists(PID_FILE)


def test_foreign_options_go_to_the_library_and_the_scan_ends(bed):
    bed.start_master()
    long_community = "x" * 10240
    # unknown letters, library options with arguments, grouped letters and a
    # huge -c: the daemon starts and serves, nothing hangs
    d = bed.start_daemon("-Q", "-d", "-D", "vorHostd,vorMeMibRevMajor", "-x", "DES", "-Tl",
                         "-c", long_community, "-Z")
    assert get(ROOT + ".1.2.0").int == 26
    d.stop()
    assert "vorHostd: refreshing data" in open("/var/log/snmpd.log").read(), \
        "-D after an unknown option still took effect (-l logs to the file)"
    # the library's own version request ends the process with status 0
    status, out, err = bed.run_daemon("-V")
    assert status == 0 and "NET-SNMP version" in err


def test_fork_detaches_and_the_child_serves(bed):
    bed.start_master()
    status, out, err = bed.run_daemon("-f")
    assert status == 0
    pid = wait_for(lambda: os.path.exists(PID_FILE) and open(PID_FILE).read().strip(),
                   what="the pid file")
    try:
        wait_for(lambda: _answers() and catches_stop_signals(int(pid)),
                 what="the detached daemon")
    finally:
        os.kill(int(pid), signal.SIGTERM)
        wait_for(lambda: not os.path.exists(PID_FILE), what="the clean stop")


def _answers():
    try:
        return get(ROOT + ".1.1.0").int == 1
    except Exception:
        return False


def test_objects_answer_again_soon_after_the_master_restarts(bed):
    bed.start_master()
    d = bed.start_daemon()
    for _ in range(3):
        bed.master.stop()
        time.sleep(0.5)  # long enough for the daemon to notice
        bed.start_master()  # returns once the master answers managers
        started = time.monotonic()
        wait_for(lambda: bed._daemon_answers(d), timeout=10, interval=0.05,
                 what="every module's objects again")
        gap = time.monotonic() - started
        assert gap < 2.0, "objects came back %.2f s after the master" % gap
