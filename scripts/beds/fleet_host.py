#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""One host of the fleet bed (fleet_bed.py), as process 1 of its own
network, mount, process and host-name namespaces, which the fleet makes
with unshare:

    fleet_host.py BUILD_DIR

It prints "ready"; then reads the host's plan (one JSON line, once the
fleet has given it its link), sets the host up from it with the agent bed
(snmpd, BUILD_DIR's temhostd, the watched application, its mounts and
package database) and prints "up". Then one command a line ("stop-app",
"start-app", "fill", "clear", "remount"), each answered "ok"; the end of
its standard input stops it all."""

import json
import os
import shutil
import subprocess
import sys

from agent_bed import ROOT, SOURCE, Bed, Process, set_

APP, SPOOL, SPOOL_MB = "orderd", "/var/spool/orderd", 16  # the watched application, its spool
CACHE = "/var/cache/orderd"  # its cache, mounted just before the spool


def sh(*cmd):
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)


def write_packages(plan):
    """The host's own package database: the agent, its master, the application."""
    snmpd = subprocess.run(["dpkg-query", "-W", "-f=${Version}", "snmpd"], text=True,
                           capture_output=True).stdout or "5.9"
    with open("/var/lib/dpkg/status", "w") as f:
        for name, version, what in (("temhostd", "2.3-1", "host agent"),
                                    ("snmpd", snmpd, "SNMP agent"),
                                    (APP, "1.%d" % plan["index"], "order processing")):
            f.write("Package: %s\nStatus: install ok installed\nArchitecture: amd64\n"
                    "Version: %s\nDescription: %s\n\n" % (name, version, what))


def fill(path, mb=None):
    """Writes mb megabytes into path, or until the file system is full."""
    block = b"\0" * 65536
    with open(path, "wb") as f:
        try:
            for _ in range(mb * 16 if mb is not None else 1 << 30):
                f.write(block)
                f.flush()
        except OSError:  # ENOSPC: full, as asked
            pass


def run_host(build):
    """The host: set up from the plan on the first line of stdin, then its
    commands until stdin ends (see above)."""
    print("ready", flush=True)
    plan = json.loads(sys.stdin.readline())
    sh("hostname", plan["name"])
    sh("ip", "link", "set", "lo", "up")
    sh("ip", "addr", "add", plan["addr"] + "/24", "dev", "eth0")
    sh("ip", "link", "set", "eth0", "up")
    sh("sysctl", "-qw", "net.ipv4.conf.all.route_localnet=1", "net.ipv4.conf.eth0.route_localnet=1")
    bed, app = Bed(build), None
    try:
        # The processors fixture before the fresh /run that hides its files.
        for src, dst in (("cpu", "/sys/devices/system/cpu"), ("stat", "/proc/stat")):
            sh("mount", "--bind", os.path.join(plan["dir"], src), dst)
            bed.mounts.append(dst)
        keep = os.open(plan["dir"], os.O_PATH)
        bed.fresh_host()
        # The host's logs outlive it, for the fleet's diagnostics.
        sh("mount", "--bind", "/proc/%d/fd/%d/log" % (os.getpid(), keep), "/var/log")
        bed.mounts.append("/var/log")
        bed.mount_tmpfs("/var/lib/dpkg")
        write_packages(plan)
        bed.mount_tmpfs(CACHE)
        bed.mount_tmpfs(SPOOL, SPOOL_MB)
        fill(SPOOL + "/queue", plan["spool_mb"])
        with open(os.path.join(SOURCE, "packaging", "temhostd.conf")) as f:
            conf = f.read()
        with open("/etc/snmp/temhostd.conf", "w") as f:
            f.write(conf + "softwareWatch application %s process %s\n" % (APP, APP))
        bed.write_persistent("defaultPollFreq(sec) 5\nhostguid %s\n" % plan["guid"])
        bed.start_master("agentaddress udp:%s:161\nrocommunity public %s\n"
                         % (plan["addr"], plan["peer"]))
        shutil.copy("/bin/sleep", "/run/" + APP)  # a process named like its package

        def start_app():
            return Process(["/run/" + APP, "infinity"], "/var/log/%s.out" % APP)
        app = start_app()
        bed.start_daemon()
        set_((ROOT + ".2.2.6.0", "s", plan["role"]), (ROOT + ".2.2.7.0", "s", plan["detail"]))
        print("up", flush=True)
        for line in sys.stdin:
            cmd = line.strip()
            if cmd == "stop-app":
                app.stop()
            elif cmd == "start-app":
                app = start_app()
            elif cmd == "fill":
                fill(SPOOL + "/overflow")
            elif cmd == "clear":
                for name in os.listdir(SPOOL):
                    os.unlink(os.path.join(SPOOL, name))
            elif cmd == "remount":  # the cache moves to the end: the spool's row and those after it renumber
                sh("umount", CACHE)
                sh("mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", CACHE)
            print("ok" if cmd else "", flush=True)
    finally:
        if app:
            app.stop()
        bed.close()


if __name__ == "__main__":
    if len(sys.argv) != 2:
        print("usage: fleet_host.py BUILD_DIR", file=sys.stderr)
        sys.exit(2)
    run_host(sys.argv[1])
