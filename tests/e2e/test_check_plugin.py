# SPDX-License-Identifier: Apache-2.0
"""check_temhostd, the Icinga and Nagios plugin, through the bed's master:
SNMPv2c and SNMPv3, a hung master, a table renumbered between two runs, and
Icinga 2 running it with the shipped CheckCommand and apply rules."""

import json
import os
import re
import shutil
import signal
import subprocess
import time

from conftest import AGENT, BUILD, ROOT, SOURCE, Process, table_rows, wait_for

PLUGIN = os.path.join(BUILD, "bin", "check_temhostd")
FS_ENTRY = ROOT + ".2.4.1.1"
V3_USER = "createUser mon SHA monauthpass AES monprivpass\nrouser mon authpriv\n"
V3 = ["-P", "3", "-U", "mon", "-A", "monauthpass", "-X", "monprivpass"]
# Another agent of the enterprise (MIB 6) reporting its condition degraded.
DEGRADED_AGENT = "override .1.3.6.1.4.1.32473.6.1.3.0 integer 3\n"


def check(*args, community=["-C", "meadow"]):
    """(exit status, the one line printed)"""
    p = subprocess.run([PLUGIN, "-H", AGENT, *community, *args], capture_output=True, text=True,
                       timeout=60)
    lines = p.stdout.splitlines()
    assert len(lines) == 1, p.stdout + p.stderr
    return p.returncode, lines[0]


def fill(path, mb):
    with open(os.path.join(path, "fill"), "wb") as f:
        f.write(b"\1" * (mb << 20))


def watched_host(bed, master_conf="", poll=5):
    """The agent and orderd (a process of that name runs) watched, a 16 MB
    spool 13 MB full; the daemon's tables rebuilt every `poll` seconds."""
    with open("/var/lib/dpkg/status", "w") as f:
        for name in ("temhostd", "orderd"):
            f.write("Package: %s\nStatus: install ok installed\nArchitecture: amd64\n"
                    "Version: 1.0\nDescription: %s\n\n" % (name, name))
    with open("/etc/snmp/temhostd.conf", "w") as f:
        f.write("softwareWatch agent temhostd process temhostd\n"
                "softwareWatch application orderd process orderd\n")
    shutil.copy("/bin/sleep", "/tmp/orderd")
    orderd = Process(["/tmp/orderd", "600"], "/var/log/orderd.out")
    bed.daemons.append(orderd)
    bed.mount_tmpfs("/mnt/spool", 16)
    fill("/mnt/spool", 13)
    bed.write_persistent("defaultPollFreq(sec) %d\n" % poll)
    bed.start_master(master_conf)
    bed.start_daemon()
    return orderd


def test_every_mode_through_the_master_with_snmpv2c_and_snmpv3(bed):
    watched_host(bed, V3_USER + DEGRADED_AGENT)
    spool = ("TEMHOSTD FS WARNING - /mnt/spool 81.2% used (warning) of 1 file system"
             " | '/mnt/spool'=81.2%;80;90;0;100")
    assert check("-m", "fs", "-n", "/mnt/spool") == (1, spool)
    assert check("-n", "/mnt/sp*", "-n", "/nowhere") == (1, spool), "fs is the default mode"
    assert check(*V3, "-n", "/mnt/spool", community=[]) == (1, spool)
    assert check("-P", "3", "-U", "mon", "-L", "authPriv", "-a", "SHA", "-A", "monauthpass",
                 "-x", "AES", "-X", "monprivpass", "-n", "/mnt/spool", community=[]) == (1, spool)
    assert check("-n", "/mnt/spool", "-w", "@0:50", "-c", "~:90")[0] == 0
    assert check("-n", "/mnt/spool", "-c", "@81:82")[0] == 2
    status, line = check("-m", "fs")  # every file system: the spool among them
    assert "'/mnt/spool'=81.2%;80;90;0;100" in line and status == (2 if "(critical)" in line else 1)
    assert check("-m", "fs", "-n", "/nowhere") == (
        3, "TEMHOSTD FS UNKNOWN - no file system mounted on /nowhere")

    assert check("-m", "software") == (
        0, "TEMHOSTD SOFTWARE OK - 2 watched packages running"
        " | 'running'=2;;;0 'not_running'=0;;;0")
    assert check(*V3, "-m", "status", community=[]) == (
        1, "TEMHOSTD STATUS WARNING - overall condition degraded: MIB 6 degraded"
        " | 'condition'=3;;;1;4")
    status, line = check("-m", "memory", "-w", "100", "-c", "100")
    assert status == 0 and line.startswith("TEMHOSTD MEMORY OK - physical memory "), line
    assert check("-m", "cpu") == (3, "TEMHOSTD CPU UNKNOWN - no 5-minute average yet (the agent"
                                     " has run under 5 minutes)")

    status, line = check("-P", "3", "-U", "mon", "-A", "wrongauthpass", community=[])
    assert status == 3 and "Authentication failure" in line, line
    assert check("-m", "fs", "-w", "5:1") == (
        3, "TEMHOSTD FS UNKNOWN - range '5:1' starts above its end")


def test_unknown_within_the_timeout_when_the_master_hangs(bed):
    bed.start_master(V3_USER)
    os.kill(bed.master.pid, signal.SIGSTOP)
    try:
        for auth in (["-C", "meadow"], V3):
            start = time.monotonic()
            assert check("-t", "2", "-m", "software", community=auth) == (
                3, "TEMHOSTD SOFTWARE UNKNOWN - no answer from 127.0.0.1:161 within 2 s")
            assert time.monotonic() - start < 3, "past the timeout"
    finally:
        os.kill(bed.master.pid, signal.SIGCONT)


def test_the_named_row_is_found_after_the_table_renumbers(bed):
    bed.mount_tmpfs("/mnt/early", 8)
    watched_host(bed, poll=1)
    rows = lambda: {cols[2].str.split(" On ")[1]: i for i, cols in table_rows(FS_ENTRY, 2).items()}
    before = rows()["/mnt/spool"]
    first = check("-n", "/mnt/spool")
    subprocess.run(["umount", "/mnt/early"], check=True)
    bed.mounts.remove("/mnt/early")
    wait_for(lambda: "/mnt/early" not in rows(), 20, 0.5, "the rebuild without /mnt/early")
    assert rows()["/mnt/spool"] == before - 1, "the spool's row moved up"
    assert check("-n", "/mnt/spool") == first == (
        1, "TEMHOSTD FS WARNING - /mnt/spool 81.2% used (warning) of 1 file system"
        " | '/mnt/spool'=81.2%;80;90;0;100")


def read_state(path):
    """{service name: last check result} from Icinga 2's state file."""
    data, at, results = open(path).read(), 0, {}
    while at < len(data):
        colon = data.index(":", at)
        end = colon + 1 + int(data[at:colon])
        obj = json.loads(data[colon + 1:end])
        at = end + 1  # the netstring's comma
        if obj["type"] == "Service" and "last_check_result" in obj["update"]:
            results[obj["name"]] = obj["update"]["last_check_result"]
    return results


def test_icinga2_runs_the_shipped_check_command_and_apply_rules(bed):
    orderd = watched_host(bed)
    top = "/run/icinga2-bed"
    dirs = {d: os.path.join(top, d) for d in ("cache", "data", "log", "spool", "run")}
    for d in dirs.values():
        os.makedirs(d)
    os.makedirs(dirs["run"] + "/icinga2")
    conf = os.path.join(top, "icinga2.conf")
    with open(conf, "w") as f:
        f.write("const PluginDir = %s\ninclude <itl>\ninclude <plugins>\n"
                "object CheckerComponent \"checker\" { }\n"
                "template Service \"generic-service\" {\n"
                "  check_interval = 1s\n  retry_interval = 1s\n  max_check_attempts = 1\n}\n"
                "include %s\n"
                "object Host \"bed\" {\n  check_command = \"dummy\"\n  address = \"127.0.0.1\"\n"
                "  vars.temhostd = true\n  vars.temhostd_community = \"meadow\"\n"
                "  vars.temhostd_fs[\"/mnt/spool\"] = { temhostd_warning = \"85\" }\n}\n"
                "object Host \"other\" {\n  check_command = \"dummy\"\n"
                "  address = \"127.0.0.1\"\n}\n"
                % (json.dumps(os.path.dirname(PLUGIN)),
                   json.dumps(os.path.join(SOURCE, "contrib", "icinga2", "temhostd.conf"))))
    defines = ["-DRunAsUser=root", "-DRunAsGroup=root", "-DCacheDir=" + dirs["cache"],
               "-DDataDir=" + dirs["data"], "-DLogDir=" + dirs["log"],
               "-DSpoolDir=" + dirs["spool"], "-DInitRunDir=" + dirs["run"]]
    p = subprocess.run(["icinga2", "daemon", "-C", "-c", conf, *defines], capture_output=True,
                       text=True, timeout=60)
    assert p.returncode == 0 and "Instantiated 6 Services" in p.stdout, p.stdout + p.stderr

    icinga = Process(["icinga2", "daemon", "-c", conf, "-x", "notice", *defines],
                     "/var/log/icinga2.out")
    try:
        changed = lambda to: re.search(r"Checkable 'bed!temhostd-software' hard state change "
                                       r"from \w+ to %s detected" % to, icinga.output())
        ran = lambda: set(re.findall(r"PID \d+ \((.*check_temhostd.*)\) terminated",
                                     icinga.output()))
        wait_for(lambda: len(ran()) == 6, 60, 0.2, "each service's first check")
        wait_for(lambda: changed("OK"), 60, 0.2, "the software service OK")
        orderd.stop()
        wait_for(lambda: changed("CRITICAL"), 60, 0.2, "the software service CRITICAL")
    finally:
        icinga.stop()  # writes the state file
    results = read_state(dirs["data"] + "/icinga2.state")  # outputs without their perfdata
    assert sorted(results) == ["bed!temhostd-cpu", "bed!temhostd-fs", "bed!temhostd-fs /mnt/spool",
                               "bed!temhostd-memory", "bed!temhostd-software",
                               "bed!temhostd-status"], "each mode once, only on the marked host"
    software = results["bed!temhostd-software"]
    assert software["state"] == 2 and software["output"].strip() == (
        "TEMHOSTD SOFTWARE CRITICAL - not running: orderd (1 of 2 watched running)")
    spool = results["bed!temhostd-fs /mnt/spool"]
    assert spool["state"] == 0 and spool["output"].strip() == (
        "TEMHOSTD FS OK - 1 file system, fullest /mnt/spool 81.2% used")
    assert results["bed!temhostd-status"]["state"] == 0
