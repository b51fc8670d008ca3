#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The fleet bed (beds/fleet_bed.py) as a program, what scripts/fleet-demo.sh
runs inside a private host:

    fleet.py [--hosts N] [--publish NETNS:PORT] [--tools ROOT] BUILD_DIR

starts a fleet of N hosts (default 5) running BUILD_DIR's daemon, prints
the overview's URL and runs until SIGINT or SIGTERM; --publish also serves
Prometheus on 127.0.0.1:PORT (or one of the 20 ports after it) of the
network namespace NETNS (a /proc/PID/ns/net path), the one the demo
started in, through beds/tcp_forward.py; --tools runs ROOT's Prometheus
and exporter (a Debian tree) instead of this host's."""

import os
import signal
import subprocess
import sys

BEDS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "beds")
sys.path.insert(0, BEDS)
from fleet_bed import PROMETHEUS, Fleet  # noqa: E402


def publish(netns, port):
    """The forwarder into netns and the port it listens on there. It gets
    the namespace as a descriptor of this process's: netns may be one
    (/proc/self/fd/N)."""
    fd = os.open(netns, os.O_RDONLY)
    try:
        forward = subprocess.Popen(
            ["/usr/bin/python3", os.path.join(BEDS, "tcp_forward.py"), "/proc/self/fd/%d" % fd,
             port, PROMETHEUS], stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True,
            pass_fds=[fd])
    finally:
        os.close(fd)
    line = forward.stdout.readline().strip()
    if not line.isdigit():
        forward.wait()
        raise SystemExit("fleet: no forwarder into %s (status %s)" % (netns, forward.returncode))
    return forward, line


def main(argv):
    n, netns, port, tools = 5, None, None, ""
    while len(argv) > 1:
        if argv[0] == "--hosts":
            n = int(argv[1])
        elif argv[0] == "--publish":
            netns, port = argv[1].rsplit(":", 1)
        elif argv[0] == "--tools":
            tools = argv[1]
        else:
            break
        argv = argv[2:]
    if len(argv) != 1:
        print("usage: fleet.py [--hosts N] [--publish NETNS:PORT] [--tools ROOT] BUILD_DIR",
              file=sys.stderr)
        return 2
    os.environ["MIBS"] = ""
    for sig in (signal.SIGINT, signal.SIGTERM):
        signal.signal(sig, lambda *_: sys.exit(0))
    forward = None
    with Fleet(argv[0], n, interval="5s", tools=tools):
        try:
            if netns:
                forward, port = publish(netns, port)
            else:
                port = PROMETHEUS.split(":")[1]
            url = "http://127.0.0.1:%s/consoles/temhostd-fleet.html" % port
            print("fleet of %d hosts up: %s  (Ctrl-C stops it)" % (n, url), flush=True)
            signal.pause()
        finally:
            if forward:
                forward.terminate()
                forward.wait()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
