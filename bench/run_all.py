# SPDX-License-Identifier: Apache-2.0
"""Every benchmark of temhostd in one run, beside the master agent's figures.

Started by bench/run-all inside a private host (scripts/in-private-host.sh):

    run_all.py [--quick] [--only=PHASE] BUILD_DIR

prepares the host (a package database of 100 recognised packages, a pass
script for a sibling MIB), runs a fleet of 5, then 20 hosts (scripts/beds/fleet_bed.py),
then two sessions of the agent bed (scripts/beds/agent_bed.py), each calling this
file again with --phase:

    run_all.py --phase reconnect|main|hung [--quick] BUILD_DIR RESULTS_JSON PROGRESS_FD

--only=PHASE runs that session alone (no fleet), for the rows it measures.
The phases add their figures to RESULTS_JSON and write progress lines to
PROGRESS_FD (their output goes to a log); the top level prints the table.
A step that fails leaves its rows marked "failed" and the others still run.
"""

import ctypes
import json
import os
import re
import resource
import signal
import socket
import subprocess
import sys
import textwrap
import time
import traceback
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts", "beds"))
from agent_bed import (MASTER_CMD, MASTER_PID_FILE, READY_OIDS, Process, get_ms,  # noqa: E402
                       hung_fuse_mount, start_slow_fuse)
from fleet_bed import EXPORTER, Fleet  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
BEDS = os.path.join(HERE, "..", "scripts", "beds")
COMMUNITY = "meadow"
AGENT = "127.0.0.1"
SYS_UPTIME = "1.3.6.1.2.1.1.3.0"
FS_TABLE = "1.3.6.1.4.1.32473.11.2.4.1"
HR_STORAGE = "1.3.6.1.2.1.25.2.3"
SW_TABLE = "1.3.6.1.4.1.32473.11.2.7.2"
HR_SW_INSTALLED = "1.3.6.1.2.1.25.6.3"
HR_PROCESSOR = "1.3.6.1.2.1.25.3.3"
HZ = os.sysconf("SC_CLK_TCK")
# The tables rebuild on demand at most once per this many seconds (polling off).
FS_REBUILD_INTERVAL = 10
SW_REBUILD_INTERVAL = 15
IDLE_SECONDS, QUICK_IDLE_SECONDS = 120, 30
MOUNT_COUNTS = (50, 2000, 8000)
SLOW_MOUNTS, SLOW_MS, MANY_HUNG = 100, 5, 100
# The container host: overlay mounts where Docker puts them, and the
# exclusion the packaged temhostd.conf suggests for them.
OVERLAYS, OVERLAY_DIR = 2000, "/var/lib/docker/overlay2"
CONTAINER_EXCLUSION = "fsExcludePath /var/lib/docker/*"
LOOPBACK_CONNECTIONS = 20000
FLEET_SIZES, FLEET_INTERVAL, FLEET_WINDOW, QUICK_FLEET_WINDOW = (5, 20), 2, 60, 20
HOSTRES_EXPORTER = "127.0.0.1:9117"


# Progress lines; a phase writes them to the terminal's descriptor, passed on
# past the agent bed whose output goes to the session log.
progress = sys.stderr


def log(text):
    print("run-all: " + text, file=progress, flush=True)


def run(*cmd, timeout=600, **kw):
    return subprocess.run(cmd, check=True, capture_output=True, text=True, timeout=timeout,
                          **kw).stdout


def bench(build, name, *args):
    return run(os.path.join(build, "bin", name), *map(str, args))


def grab(pattern, text):
    """The first group of pattern in text, as a number."""
    m = re.search(pattern, text)
    if not m:
        raise RuntimeError("no match for %r in:\n%s" % (pattern, text))
    return float(m.group(1))


# --- processes -----------------------------------------------------------

def pid_of(path):
    with open(path) as f:
        return int(f.read().split()[0])


def daemon_pid():
    return pid_of("/var/run/temhostd.pid")


def master_pid():
    return pid_of(MASTER_PID_FILE)


def cpu_ticks(pid, children=False):
    """utime+stime (and the waited-for children's, if asked) of pid."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return sum(int(x) for x in fields[11:15 if children else 13])


def rss_kib(pid):
    with open("/proc/%d/status" % pid) as f:
        return int(grab(r"VmRSS:\s+(\d+)", f.read()))


def gone(pid):
    """Exited: no such process, or a zombie its parent has yet to reap."""
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().rsplit(")", 1)[1].split()[0] == "Z"
    except FileNotFoundError:
        return True


def poll(check, timeout, interval=0.01):
    """Seconds until check() holds; raises after timeout seconds."""
    start = time.monotonic()
    while not check():
        if time.monotonic() - start > timeout:
            raise RuntimeError("still waiting after %d s" % timeout)
        time.sleep(interval)
    return time.monotonic() - start


# --- SNMP ------------------------------------------------------------------

def answers(*oids):
    """Every object given answers (is registered) through the master."""
    r = subprocess.run(["snmpget", "-v2c", "-c", COMMUNITY, "-t", "0.2", "-r", "0", AGENT, *oids],
                       capture_output=True, text=True)
    return r.returncode == 0 and "No Such Object" not in r.stdout


def walk(oid, timeout=300):
    """One GETBULK walk: (varbinds, seconds)."""
    start = time.monotonic()
    out = run("snmpbulkwalk", "-v2c", "-c", COMMUNITY, "-On", "-t", "30", AGENT, oid,
              timeout=timeout)
    return sum(1 for line in out.splitlines() if line.startswith(".")), time.monotonic() - start


def walk_cost(oid, pid, runs=3, until=None, prime=True):
    """Walks oid, after a first walk that primes it (fills the agent's
    caches) unless told not to: best wall time per varbind (us), and pid's
    CPU per varbind (us) over the measured walks. With until (a monotonic
    time), walks only while one more still ends before it, at least one."""
    if prime:
        walk(oid)
    best, varbinds, ticks, done = None, 0, 0, 0
    while done < runs or until:
        t0 = cpu_ticks(pid)
        n, secs = walk(oid)
        ticks += cpu_ticks(pid) - t0
        varbinds += n
        done += 1
        best = min(best or secs / n, secs / n)
        if until and time.monotonic() + 1.5 * secs > until:
            break
    return {"varbinds": n, "walks": done, "wall_us": best * 1e6,
            "cpu_us": ticks / HZ / varbinds * 1e6}


# --- host preparation -------------------------------------------------------

# Packages whose rows name a daemon or driver (three rows each): seven the
# filters know, then three that sw_refresh_bench watches (snmpd running).
SW_CHECKED = ["KYQtem", "KYQsorrel", "KYQwisp", "KYQBramAgt", "KYQtarn", "KYQmerl", "VORlynx3",
              "snmpd", "alphad", "betad"]


def write_package_db():
    """100 listed packages, 30 of them naming ten distinct daemons or
    drivers to look for (temhostd and snmpd running), 70 without."""
    def pkg(name, n, what):
        return ("Package: %s\nStatus: install ok installed\nMaintainer: bench <bench@localhost>\n"
                "Architecture: amd64\nVersion: 1.%d-2024.01.01\nDescription: %s\n\n"
                % (name, n, what))
    entries = [pkg("%s%d" % (p, i), i, "VOR package with a check")
               for p in SW_CHECKED for i in range(10, 13)]
    entries += [pkg("KYQvane%d" % i, i, "utility without a daemon") for i in range(10, 80)]
    with open("/var/lib/dpkg/status", "w") as f:
        f.write("".join(entries))


def write_sibling_mib():
    """A second MIB of the enterprise (number 3) served by the master through
    a pass script, as an installed sibling agent would be; the status array
    finds it. Returns the master configuration lines' file."""
    os.makedirs("/var/tmp", exist_ok=True)
    with open("/var/tmp/mib3.sh", "w") as f:
        f.write("#!/bin/sh\n[ \"$1\" = \"-g\" ] || exit 0\ncase \"$2\" in\n"
                ".1.3.6.1.4.1.32473.3.1.3.0) v=2 ;;\n.1.3.6.1.4.1.32473.3.1.1.0) v=4 ;;\n"
                ".1.3.6.1.4.1.32473.3.1.2.0) v=1 ;;\n*) exit 0 ;;\nesac\n"
                "printf '%s\\ninteger\\n%s\\n' \"$2\" \"$v\"\n")
    with open("/var/tmp/mib3.conf", "w") as f:
        f.write("pass .1.3.6.1.4.1.32473.3 /bin/sh /var/tmp/mib3.sh\n")
    return "/var/tmp/mib3.conf"


_libc = ctypes.CDLL(None, use_errno=True)


def mount_tmpfs_up_to(count):
    """tmpfs file systems mounted at /mnt/b/0 .. count-1 (size 1 MiB), like
    mount -t tmpfs -o size=1m tmpfs /mnt/b/N, through the system call."""
    for i in range(count):
        path = "/mnt/b/%d" % i
        if os.path.ismount(path):
            continue
        os.makedirs(path, exist_ok=True)
        if _libc.mount(b"tmpfs", path.encode(), b"tmpfs", 0, b"size=1m") != 0:
            raise OSError(ctypes.get_errno(), "mount " + path)


def mount_overlays(count):
    """count overlay file systems at OVERLAY_DIR/N/merged, as Docker mounts
    them (one shared lower layer, an upper and work directory each on a
    tmpfs), through the system call."""
    base = "/run/overlay-layers"
    os.makedirs(base, exist_ok=True)
    if not os.path.ismount(base):
        if _libc.mount(b"tmpfs", base.encode(), b"tmpfs", 0, b"size=64m") != 0:
            raise OSError(ctypes.get_errno(), "mount " + base)
    os.makedirs(base + "/lower", exist_ok=True)
    for n in range(count):
        path = "%s/%d/merged" % (OVERLAY_DIR, n)
        os.makedirs(path, exist_ok=True)
        if os.path.ismount(path):
            continue
        for d in ("upper", "work"):
            os.makedirs("%s/%s%d" % (base, d, n), exist_ok=True)
        data = "lowerdir=%s/lower,upperdir=%s/upper%d,workdir=%s/work%d" % (base, base, n, base, n)
        if _libc.mount(b"overlay", path.encode(), b"overlay", 0, data.encode()) != 0:
            raise OSError(ctypes.get_errno(), "mount " + path)


def unmount_overlays(count):
    for n in range(count):
        _libc.umount2(("%s/%d/merged" % (OVERLAY_DIR, n)).encode(), 2)  # MNT_DETACH


def _hold_connections(count):
    """count established TCP connections on loopback, both ends open."""
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(4096)
    sockets = [listener]
    for _ in range(count):
        sockets.append(socket.create_connection(listener.getsockname()))
        sockets.append(listener.accept()[0])
    return sockets


def open_loopback_connections(count, workers=4):
    """count TCP connections on loopback, held by worker processes (one
    process may not hold both ends of them all: the hard RLIMIT_NOFILE can be
    lower than that, even for root in a container). Returns the workers for
    close_loopback_connections."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    held = []
    for _ in range(workers):
        ready_r, ready_w = os.pipe()
        stop_r, stop_w = os.pipe()
        pid = os.fork()
        if pid == 0:
            try:
                for _, other in held:  # the others must see their stop pipes close
                    os.close(other)
                os.close(ready_r)
                os.close(stop_w)
                sockets = _hold_connections(count // workers)
                os.write(ready_w, b"1")
                os.read(stop_r, 1)
                del sockets
            except BaseException:
                traceback.print_exc()
            finally:
                os._exit(0)
        os.close(ready_w)
        os.close(stop_r)
        held.append((pid, stop_w))
        ok = os.read(ready_r, 1) == b"1"
        os.close(ready_r)
        if not ok:
            close_loopback_connections(held)
            raise RuntimeError("a worker could not open its connections")
    resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))
    return held


def close_loopback_connections(held):
    for pid, stop_w in held:
        os.close(stop_w)
        os.waitpid(pid, 0)


# --- phases ------------------------------------------------------------------

def phase_reconnect(build, res, quick):
    """The master restarted three times: how long after it answers again
    every object of the daemon answers again."""
    objects = READY_OIDS
    gaps, starts = [], []
    master = None
    try:
        for _ in range(3):
            old = master_pid()
            os.kill(old, signal.SIGTERM)
            poll(lambda: gone(old), 10)
            if master:
                master.wait()
            master = subprocess.Popen(MASTER_CMD)
            starts.append(poll(lambda: answers(SYS_UPTIME), 20))
            gaps.append(poll(lambda: answers(*objects), 30))
            log("reconnection: master answering %.2f s after its start, every object %.2f s "
                "after that" % (starts[-1], gaps[-1]))
            time.sleep(2)
    finally:
        if master:
            master.terminate()
            master.wait()
    res["reconnect"] = {"gaps": gaps, "master_starts": starts}


def step_get_rate(build, res, quick):
    out = bench(build, "get_rate_bench", 2000 if quick else 5000)
    res["get_rate"] = {"ours": grab(r"vorMeMibRevMajor.0 over AgentX:\s+([\d.]+)", out),
                       "master": grab(r"sysUpTime.0:\s+([\d.]+)", out)}


def telnet_latency(build, quick):
    t50, o50, t90, o90 = map(float, bench(build, "telnet_latency_bench", 100 if quick else 300)
                             .split())
    return {"telnet": t50, "ostype": o50, "telnet_p90": t90, "ostype_p90": o90}


def step_telnet(build, res, quick):
    res["telnet_idle"] = telnet_latency(build, quick)
    held = open_loopback_connections(LOOPBACK_CONNECTIONS)
    try:
        with open("/proc/net/tcp") as f:
            lines = sum(1 for _ in f) - 1
        res["telnet_loaded"] = telnet_latency(build, quick)
        res["telnet_loaded"]["tcp_lines"] = lines
    finally:
        close_loopback_connections(held)


def step_status(build, res, quick):
    out = bench(build, "status_bench", 50 if quick else 200, 200 if quick else 500)
    res["status"] = {
        "rebuild_ms": grab(r"one rebuild.*median\s+([\d.]+)", out),
        "master_ms": grab(r"master's sysUpTime.0 \(ms\).*median\s+([\d.]+)", out),
        "code_rate": grab(r"vorHoCodeServer.0 over AgentX:\s+([\d.]+)", out),
        "port_rate": grab(r"vorHoWebMgmtPort.0 \(rebuilds\):\s+([\d.]+)", out)}


def step_cpu_sampler(build, res, quick):
    out = bench(build, "cpu_refresh_bench", 20 if quick else 50, 256)
    res["cpu_sampler"] = {
        "host": grab(r"this host:.*median ([\d.]+)", out),
        "host_min": grab(r"this host:.*min ([\d.]+)", out),
        "fixture": grab(r"fixture tree:.*median ([\d.]+)", out),
        "fixture_min": grab(r"fixture tree:.*min ([\d.]+)", out),
        "fixture_cpus": grab(r"fixture tree:\s+(\d+) processors", out)}


def step_software(build, res, quick):
    out = bench(build, "sw_refresh_bench", 10)
    # Walk within one rebuild interval of the first walk's rebuild.
    time.sleep(SW_REBUILD_INTERVAL + 1)
    res["software"] = {
        "ours": walk_cost(SW_TABLE, daemon_pid()),
        "master": walk_cost(HR_SW_INSTALLED, master_pid()),
        "refresh_ms": grab(r"mean ([\d.]+) ms", out),
        "pipeline_ms": grab(r"one check pipeline.*min ([\d.]+) ms", out),
        "daemons": grab(r"(\d+) distinct", out),
        "rows": grab(r"runs, (\d+) rows", out)}


def step_idle(build, res, quick):
    seconds = QUICK_IDLE_SECONDS if quick else IDLE_SECONDS
    pids = {"ours": daemon_pid(), "master": master_pid()}
    time.sleep(5)  # let the work of the steps before settle
    before = {k: cpu_ticks(p, children=True) for k, p in pids.items()}
    start = time.monotonic()
    time.sleep(seconds)
    wall = time.monotonic() - start
    res["idle"] = {"seconds": wall, "tick_pct": 100 / (HZ * wall)}
    for k, p in pids.items():
        res["idle"][k] = {"pct": (cpu_ticks(p, children=True) - before[k]) * 100 / (HZ * wall),
                          "rss_kib": rss_kib(p)}


def fs_walk_windows(pid, windows=3):
    """The file system table's walk cost in several rebuild windows: each
    past the rebuild interval, a priming walk that rebuilds the table, then
    walks that end before the next rebuild is due. The window with the least
    CPU per varbind counts (the machine is shared); all are kept."""
    costs = []
    last = time.monotonic()
    for _ in range(windows):
        time.sleep(max(0, last + FS_REBUILD_INTERVAL + 1 - time.monotonic()))
        last = time.monotonic()
        until = last + FS_REBUILD_INTERVAL - 1.5
        costs.append(walk_cost(FS_TABLE, pid, until=until))
        costs[-1]["window_ok"] = time.monotonic() < until + 0.5
    return dict(min(costs, key=lambda c: c["cpu_us"]),
                wall_us=min(c["wall_us"] for c in costs),
                walks=sum(c["walks"] for c in costs),
                cpu_windows=[c["cpu_us"] for c in costs],
                window_ok=all(c["window_ok"] for c in costs))


def step_file_systems(build, res, quick):
    res["fs"] = {}
    for count in MOUNT_COUNTS:
        mount_tmpfs_up_to(count)
        ours = fs_walk_windows(daemon_pid(), 1 if quick else 3)
        # The master's walk grows with the square of the rows (a minute at
        # 8,000): one walk there, its cache load included.
        big = count > 2000
        master = walk_cost(HR_STORAGE, master_pid(), runs=1 if big else 3, prime=not big)
        refresh = bench(build, "fs_refresh_bench", 20)
        mounts, read_ms, statvfs_ms = bench(build, "mount_floor_bench", 10).split()
        res["fs"][str(count)] = {
            "ours": ours, "master": master, "mounts": int(mounts),
            "refresh_ms": grab(r"mean ([\d.]+) us", refresh) / 1000,
            "refresh_min_ms": grab(r"min ([\d.]+) us", refresh) / 1000,
            "read_ms": float(read_ms), "statvfs_ms": float(statvfs_ms)}
        log("file systems: %d mounts measured" % int(mounts))


# --- a container host ----------------------------------------------------------

def container_window(pid):
    """One rebuild window of the file system table: the walk that rebuilds
    it (the first past the interval: wall ms, the daemon's CPU ms), then
    walks served from the list until the window ends (best wall and the
    daemon's CPU, us per varbind)."""
    time.sleep(FS_REBUILD_INTERVAL + 1)
    t0 = cpu_ticks(pid)
    n, secs = walk(FS_TABLE)
    ticks = cpu_ticks(pid) - t0
    served = walk_cost(FS_TABLE, pid, until=time.monotonic() + FS_REBUILD_INTERVAL - 2.5,
                       prime=False)
    return {"rows": n // 7, "rebuild_walk_ms": secs * 1000, "rebuild_cpu_ms": ticks * 1000 / HZ,
            "wall_us": served["wall_us"], "cpu_us": served["cpu_us"]}


def best_of(windows):
    """Each figure's least over the windows (the machine is shared)."""
    return dict({k: min(w[k] for w in windows) for k in windows[0]}, windows=len(windows))


def refresh_cpu(build, *lines):
    out = bench(build, "fs_refresh_bench", 20, *lines)
    return {"cpu_ms": grab(r"cpu ([\d.]+) us", out) / 1000,
            "mean_ms": grab(r"mean ([\d.]+) us", out) / 1000, "rows": int(grab(r"(\d+) rows", out))}


def phase_container(build, res, quick):
    """A daemon without exclusions: the file system table over the host's
    own mounts, then with OVERLAYS overlay mounts beside them; a rebuild's
    CPU over them with the exclusion and without (bench/fs_refresh_bench)."""
    log("container host: %d overlay mounts, no exclusion" % OVERLAYS)
    windows, out = 1 if quick else 3, {}
    out["host"] = best_of([container_window(daemon_pid()) for _ in range(windows)])
    mount_overlays(OVERLAYS)
    out["overlays"] = best_of([container_window(daemon_pid()) for _ in range(windows)])
    out["refresh_plain"] = refresh_cpu(build)
    out["refresh_excluded"] = refresh_cpu(build, CONTAINER_EXCLUSION)
    res["container"] = out


def phase_container_excluded(build, res, quick):
    """A daemon with the exclusion: windows with the overlays mounted
    alternate with windows without them (the machine's load drifts)."""
    log("container host: %d overlay mounts excluded" % OVERLAYS)
    out, windows = res["container"], {"excluded": [], "host_excluding": []}
    for cycle in range(1 if quick else 3):
        if cycle:
            mount_overlays(OVERLAYS)
        windows["excluded"].append(container_window(daemon_pid()))
        unmount_overlays(OVERLAYS)
        windows["host_excluding"].append(container_window(daemon_pid()))
    out.update({k: best_of(w) for k, w in windows.items()})
    # Each cycle's own ratio, to show how far the shared machine's load
    # moves a single window.
    out["cycle_ratios"] = [e["wall_us"] / h["wall_us"]
                           for e, h in zip(windows["excluded"], windows["host_excluding"])]
    out["refresh_host"] = refresh_cpu(build)
    res["container"] = out


# --- the fleet ---------------------------------------------------------------

def hostres_module():
    """The master's own storage and processor tables, as a module of the
    exporter's generator would read them (HOST-RESOURCES-MIB)."""
    storage = lambda col: "%s.1.%d" % (HR_STORAGE, col)
    index = [{"labelname": "hrStorageIndex", "type": "gauge"}]
    descr = [{"labels": ["hrStorageIndex"], "labelname": "hrStorageDescr", "oid": storage(3),
              "type": "DisplayString"}]
    metrics = [{"name": name, "oid": storage(col), "type": "gauge", "indexes": index,
                "lookups": descr}
               for name, col in (("hrStorageAllocationUnits", 4), ("hrStorageSize", 5),
                                 ("hrStorageUsed", 6))]
    metrics.append({"name": "hrProcessorLoad", "oid": HR_PROCESSOR + ".1.2", "type": "gauge",
                    "indexes": [{"labelname": "hrDeviceIndex", "type": "gauge"}]})
    return {"hostres": {"version": 2, "auth": {"community": "public"}, "timeout": "5s",
                        "retries": 2, "max_repetitions": 25, "walk": [HR_STORAGE, HR_PROCESSOR],
                        "metrics": metrics}}


def exporter_counts(address, module):
    """(collections, seconds spent) of one module, from the exporter's own metrics."""
    with urllib.request.urlopen("http://%s/metrics" % address, timeout=30) as r:
        text = r.read().decode()
    pick = lambda what: grab(r'snmp_collection_duration_seconds_%s\{module="%s"\} (\S+)'
                             % (what, module), text)
    return pick("count"), pick("sum")


def step_fleet(build, res, quick):
    """N hosts (scripts/beds/fleet_bed.py) scraped every FLEET_INTERVAL s through two
    exporters, one per module: Prometheus' scrape duration per host and the
    exporter's CPU per scrape over a window, for temhostd's module and the
    host-resources one."""
    window = QUICK_FLEET_WINDOW if quick else FLEET_WINDOW
    modules = "/run/hostres.yml"
    with open(modules, "w") as f:
        json.dump(hostres_module(), f)  # JSON is YAML
    job = {"job_name": "hostres", "metrics_path": "/snmp", "params": {"module": ["hostres"]},
           "relabel_configs": [
               {"source_labels": ["__address__"], "target_label": "__param_target"},
               {"source_labels": ["__param_target"], "target_label": "instance"},
               {"target_label": "__address__", "replacement": HOSTRES_EXPORTER}]}
    for n in FLEET_SIZES:
        log("fleet of %d hosts" % n)
        job["static_configs"] = [{"targets": ["host%d" % i for i in range(1, n + 1)]}]
        hostres = Process(["prometheus-snmp-exporter", "--config.file=" + modules,
                           "--web.listen-address=" + HOSTRES_EXPORTER], "/tmp/hostres.log")
        try:
            with Fleet(build, n, interval="%ds" % FLEET_INTERVAL, jobs=[job]) as fleet:
                exporters = {"temhostd": (EXPORTER, fleet.exporter.pid),
                             "hostres": (HOSTRES_EXPORTER, hostres.pid)}
                poll(lambda: fleet.query('count(up{job="hostres"} == 1)') == [n], 30, 0.5)
                time.sleep(2 * FLEET_INTERVAL)  # every target scraped, priming done
                before = {m: (exporter_counts(a, m), cpu_ticks(pid))
                          for m, (a, pid) in exporters.items()}
                time.sleep(window)
                figures = {}
                for m, (a, pid) in exporters.items():
                    (count0, _), ticks0 = before[m]
                    count, _ = exporter_counts(a, m)
                    scrape = fleet.query('avg(avg_over_time(scrape_duration_seconds{job="%s"}'
                                         '[%ds]))' % (m, window))
                    samples = fleet.query('avg(scrape_samples_scraped{job="%s"})' % m)
                    figures[m] = {"scrape_ms": 1000 * scrape[0], "scrapes": count - count0,
                                  "samples": samples[0],
                                  "cpu_ms": 1000 * (cpu_ticks(pid) - ticks0) / HZ
                                  / (count - count0)}
                res.setdefault("fleet", {})[str(n)] = dict(figures, window=window)
        finally:
            hostres.stop()
# --- a hung file system beside 8,000 -----------------------------------------

def paced_gets(seconds, interval=0.002):
    """Latencies (ms) of GETs of the file system table's first size, one due
    every interval: one sent late because an earlier one waited counts from
    when it was due, as the managers' would, who do not wait for each other."""
    times, start = [], time.monotonic()
    for due in (start + k * interval for k in range(int(seconds / interval))):
        time.sleep(max(0.0, due - time.monotonic()))
        if get_ms(FS_TABLE + ".1.3.0")[1].endswith(b"\x80\x00"):
            raise RuntimeError("the subtree is gone")
        times.append((time.monotonic() - due) * 1000)
    return times


def threads_of(pid):
    with open("/proc/%d/status" % pid) as f:
        return int(grab(r"Threads:\s+(\d+)", f.read()))


def release_mount(fd, path):
    os.close(fd)
    subprocess.run(["umount", "-l", path])


def window_figures(times, out):
    """Each figure is the middle one of the windows' own, and each ratio the
    middle one of the ratios of neighbouring windows: the shared machine's
    load drifts, and a window it spoils does not decide them."""
    middle = lambda values: sorted(values)[len(values) // 2]
    figures = {}
    for key, windows in times.items():
        figures[key] = [{"median": w[len(w) // 2], "p99": w[len(w) * 99 // 100]}
                        for w in map(sorted, windows)]
        out[key] = {q: middle([f[q] for f in figures[key]]) for q in ("median", "p99")}
        out[key].update(max=max(map(max, windows)), gets=sum(map(len, windows)))
    out["ratio"] = {q: middle([a[q] / b[q] for a, b in zip(figures["with"], figures["without"])])
                    for q in ("median", "p99")}
    return out


def descriptions():
    """The file system table's descriptions, quoted (one GETBULK walk)."""
    out = run("snmpbulkwalk", "-v2c", "-c", COMMUNITY, "-On", "-Oqv", "-t", "30", AGENT,
              FS_TABLE + ".1.2", timeout=300)
    return out.splitlines()


def step_slow_mounts(res, quick):
    """100 live FUSE mounts beside the 8,000 answering after 5 ms against
    the same answering at once, in alternating windows: the rows listed at
    each window's end, and the GET latency while the daemon rebuilds every
    second."""
    log("slow mounts")
    paths = ["/mnt/slow/%d" % i for i in range(SLOW_MOUNTS)]
    cycles, seconds = (2, 3) if quick else (4, 5)
    times, listed = {"without": [], "with": []}, []
    for _ in range(cycles):
        for key, delay in (("without", 0), ("with", SLOW_MS)):
            server = start_slow_fuse(paths, delay)
            try:
                time.sleep(2)  # the rebuild that meets them, then one that knows them
                times[key].append(paced_gets(seconds))
                if key == "with":
                    listed.append(sum(d.strip('"').startswith("slow On") for d in descriptions()))
            finally:
                server.stop()
    res["slow_mounts"] = window_figures(times, {"window_s": seconds, "listed": min(listed),
                                                "mounted": SLOW_MOUNTS})


def step_many_hung(res):
    """100 hung mounts beside the 8,000: the other rows still listed once
    every hung one is past its limit, and the threads they hold."""
    log("many hung mounts")
    pid = daemon_pid()
    expected, before = len(descriptions()), threads_of(pid)
    mounted = []
    try:
        for i in range(MANY_HUNG):
            path = "/mnt/many-hung/%d" % i
            mounted.append((hung_fuse_mount(path), path))
        time.sleep(8)  # every one asked, then past its 5 s limit
        rows = descriptions()
        hung = sum(d.strip('"').startswith("hung On") for d in rows)
        res["many_hung"] = {"expected": expected, "live": len(rows) - hung, "hung_listed": hung,
                            "threads": threads_of(pid) - before}
    finally:
        for fd, path in mounted:
            release_mount(fd, path)


def phase_hung(build, res, quick):
    """The daemon of a session of its own, rebuilding every second: GET
    latency over 8,000 mounts without and with one hung mount beside them,
    in alternating windows (the machine's load drifts); what the hung
    mount's parked call costs, and a stop while it waits."""
    log("hung mount")
    mount_tmpfs_up_to(MOUNT_COUNTS[-1])
    for step in (lambda: step_slow_mounts(res, quick), lambda: step_many_hung(res)):
        try:
            step()
        except Exception:  # the other figures still come
            traceback.print_exc()
        save(res)
    cycles, seconds = (2, 4) if quick else (6, 5)
    pid, fd, out = daemon_pid(), None, {"window_s": seconds}
    times = {"without": [], "with": []}
    try:
        for cycle in range(cycles):
            times["without"].append(paced_gets(seconds))
            before = threads_of(pid)
            fd = hung_fuse_mount("/mnt/hung")
            time.sleep(2)  # the rebuild that meets it, then one that skips it
            times["with"].append(paced_gets(seconds))
            if cycle == 0:
                out["threads"] = threads_of(pid) - before
            if cycle < cycles - 1:
                release_mount(fd, "/mnt/hung")
                fd = None
                time.sleep(1)
        os.kill(pid, signal.SIGTERM)
        out["stop_s"] = poll(lambda: gone(pid), 10)
    except Exception:
        traceback.print_exc()
        return
    finally:
        if fd is not None:
            release_mount(fd, "/mnt/hung")
    window_figures(times, out)
    res["hung_mount"] = out


MAIN_STEPS = [step_get_rate, step_telnet, step_status, step_cpu_sampler, step_software,
              step_idle, step_file_systems]


def phase_main(build, res, quick):
    for step in MAIN_STEPS:
        log(step.__name__[5:].replace("_", " "))
        try:
            step(build, res, quick)
        except Exception:  # one failed step must not lose the others' figures
            traceback.print_exc()
        save(res)


# --- the table ---------------------------------------------------------------

def save(res):
    with open(res["_path"], "w") as f:
        json.dump(res, f)


def rows(res):
    """(figure, ours, master or reference, ratio, goal, met) tuples; met is
    None where there is no goal."""
    out = []

    def row(name, fn):
        try:
            out.append(fn())
        except (KeyError, TypeError, ZeroDivisionError, IndexError):
            out.append((name, "failed", "", "", "", "failed"))

    def r1():
        g = res["get_rate"]
        ratio = g["ours"] / g["master"]
        return ("1 GET/s vorMeMibRevMajor.0 | sysUpTime.0", "%.0f" % g["ours"],
                "%.0f" % g["master"], "%.2f" % ratio, ">= 0.50", ratio >= 0.5)
    row("1 GET rate", r1)

    def telnet(key, label):
        def fn():
            t = res[key]
            diff = t["telnet"] - t["ostype"]
            return ("2 GET ms vorHoTelnet.0 | vorHoOsType.0, median, " + label,
                    "%.2f" % t["telnet"], "%.2f" % t["ostype"], "+%.2f ms" % diff,
                    "<= +5 ms", diff <= 5)
        row("2 telnet " + label, fn)
    telnet("telnet_idle", "idle")
    telnet("telnet_loaded", "%d TCP conns" % LOOPBACK_CONNECTIONS)

    fs = res.get("fs", {})
    base = fs.get(str(MOUNT_COUNTS[0]), {}).get("ours", {}).get("cpu_us")
    for count in MOUNT_COUNTS:
        def walk_row(count=count):
            f = fs[str(count)]
            return ("3 fs walk us/varbind | hrStorageTable, %d tmpfs" % count,
                    "%.1f" % f["ours"]["wall_us"], "%.1f" % f["master"]["wall_us"],
                    "%.2f" % (f["ours"]["wall_us"] / f["master"]["wall_us"]), "", None)

        def cpu_row(count=count):
            f = fs[str(count)]
            cpu = f["ours"]["cpu_us"]
            goal = "" if count == MOUNT_COUNTS[0] else "<= 1.5 x @%d" % MOUNT_COUNTS[0]
            met = None if count == MOUNT_COUNTS[0] else cpu <= 1.5 * base
            return ("3 fs CPU us/varbind (snmpd: hrStorage), %d" % count, "%.1f" % cpu,
                    "%.1f" % f["master"]["cpu_us"],
                    "%.2f x @%d" % (cpu / base, MOUNT_COUNTS[0]), goal, met)
        row("3 fs walk %d" % count, walk_row)
        row("3 fs CPU %d" % count, cpu_row)

    def refresh_row():
        f = fs[str(MOUNT_COUNTS[-1])]
        floor = f["read_ms"] + f["statvfs_ms"]
        return ("3 fs refresh ms, %d mounts (mean) | kernel floor" % f["mounts"],
                "%.2f (min %.2f)" % (f["refresh_ms"], f["refresh_min_ms"]), "%.2f" % floor,
                "%.2f (min)" % (f["refresh_min_ms"] / floor),
                "<= 10 ms", f["refresh_ms"] <= 10)
    row("3 fs refresh", refresh_row)

    def sw_walk():
        s = res["software"]
        ratio = s["ours"]["wall_us"] / s["master"]["wall_us"]
        return ("4 sw walk us/varbind | hrSWInstalledTable", "%.1f" % s["ours"]["wall_us"],
                "%.1f" % s["master"]["wall_us"], "%.2f" % ratio, "<= 1.00", ratio <= 1.0)
    row("4 sw walk", sw_walk)

    def sw_refresh():
        s = res["software"]
        return ("4 sw refresh ms, %d rows, %d daemons (blocks the loop) | one check pipeline"
                % (s["rows"], s["daemons"]), "%.1f" % s["refresh_ms"], "%.1f" % s["pipeline_ms"],
                "%.2f" % (s["refresh_ms"] / s["pipeline_ms"]), "<= 30 ms", s["refresh_ms"] <= 30)
    row("4 sw refresh", sw_refresh)

    def idle_cpu():
        i = res["idle"]
        return ("5 idle CPU %% of a core, %.0f s | snmpd" % i["seconds"],
                "%.4f" % i["ours"]["pct"], "%.4f" % i["master"]["pct"],
                ratio_text(i["ours"]["pct"], i["master"]["pct"]), "<= 0.05 %, <= snmpd",
                i["ours"]["pct"] <= min(0.05, i["master"]["pct"]))
    row("5 idle CPU", idle_cpu)
    row("5 RSS", lambda: ("5 resident size MiB | snmpd",
                          "%.1f" % (res["idle"]["ours"]["rss_kib"] / 1024),
                          "%.1f" % (res["idle"]["master"]["rss_kib"] / 1024),
                          "%.2f" % (res["idle"]["ours"]["rss_kib"]
                                    / res["idle"]["master"]["rss_kib"]), "", None))

    def status_row():
        s = res["status"]
        return ("6 status rebuild ms | 24 sysUpTime.0 queries", "%.2f" % s["rebuild_ms"],
                "%.2f" % s["master_ms"], "%.2f" % (s["rebuild_ms"] / s["master_ms"]),
                "<= 50 ms", s["rebuild_ms"] <= 50)
    row("6 status rebuild", status_row)
    row("6 GET/s", lambda: ("6 GET/s vorHoWebMgmtPort.0 | vorHoCodeServer.0",
                            "%.0f" % res["status"]["port_rate"],
                            "%.0f" % res["status"]["code_rate"],
                            "%.2f" % (res["status"]["port_rate"] / res["status"]["code_rate"]),
                            "", None))

    for key, label in (("host", "this host"), ("fixture", "%d processors")):
        def sampler(key=key, label=label):
            c = res["cpu_sampler"]
            text = label % c["fixture_cpus"] if "%" in label else label
            return ("7 refresh_cpuLoad_CB ms, " + text + " (median)",
                    "%.2f (min %.2f)" % (c[key], c[key + "_min"]), "", "",
                    "<= 5 ms", c[key] <= 5)
        row("7 cpu sampler " + key, sampler)

    def reconnect():
        r = res["reconnect"]
        return ("8 reconnect s after master answers, 3 restarts",
                " ".join("%.2f" % g for g in r["gaps"]),
                "start " + " ".join("%.2f" % s for s in r["master_starts"]), "",
                "<= 2 s", len(r["gaps"]) == 3 and max(r["gaps"]) <= 2)
    row("8 reconnect", reconnect)

    fleet = res.get("fleet", {})
    small, large = (str(n) for n in FLEET_SIZES)
    for key, what in (("scrape_ms", "9 fleet scrape ms per host"),
                      ("cpu_ms", "9 exporter CPU ms per scrape")):
        for n in FLEET_SIZES:
            def vs_hostres(key=key, what=what, n=str(n)):
                ours, ref = fleet[n]["temhostd"][key], fleet[n]["hostres"][key]
                return ("%s, %s hosts | host-resources module" % (what, n), "%.2f" % ours,
                        "%.2f" % ref, "%.2f" % (ours / ref), "<= 1.00", ours <= ref)
            row(what + " " + str(n), vs_hostres)

        def flat(key=key, what=what):
            ours, ref = fleet[large]["temhostd"][key], fleet[small]["temhostd"][key]
            return ("%s, %s | %s hosts" % (what, large, small), "%.2f" % ours, "%.2f" % ref,
                    "%.2f" % (ours / ref), "<= 1.20", ours <= 1.2 * ref)
        row(what + " flat", flat)
    row("9 hung mount", lambda: hung_mount_row(res))
    row("9 slow mounts", lambda: slow_mounts_row(res))
    row("9 many hung", lambda: many_hung_row(res))
    row("10 container host walk", lambda: container_walk_row(res))
    row("10 container host CPU", lambda: container_cpu_row(res))
    return out


def container_walk_row(res):
    """Walks served from the list with the overlays excluded, against the
    same daemon's once they are unmounted, in alternating windows: the best
    of each (the cycles' own ratios are in the note)."""
    c = res["container"]
    ours, ref = c["excluded"]["wall_us"], c["host_excluding"]["wall_us"]
    ratio = ours / ref
    return ("10 container host: fs walk us/varbind, %d overlays excluded | host without them"
            % OVERLAYS, "%.1f" % ours, "%.1f" % ref, "%.2f" % ratio, "<= 1.1", ratio <= 1.1)


def container_cpu_row(res):
    c = res["container"]
    ours, ref = c["refresh_excluded"]["cpu_ms"], c["refresh_plain"]["cpu_ms"]
    return ("10 container host: rebuild CPU ms, %d overlays excluded | not excluded" % OVERLAYS,
            "%.2f" % ours, "%.2f" % ref, "%.2f" % (ours / ref), "", None)


def container_note(res):
    c = res.get("container")
    if not c or "host_excluding" not in c:
        return []
    e, h, o, a = c["excluded"], c["host_excluding"], c["overlays"], c["host"]
    return ["container host: %d overlay mounts (one shared lower layer, upper and work "
            "directories on a tmpfs) at %s/N/merged beside the host's own, excluded by \"%s\" "
            "(a daemon of its own: the file is read at start); best of %d alternating windows "
            "each, the cycles' own walk ratios %s; rows "
            "%d excluded, %d host alone, %d without the exclusion. Walks served from the list, "
            "us/varbind: %.1f excluded, %.1f host alone, %.1f without the exclusion (%.1f host "
            "alone, same daemon). The walk that rebuilds the table, ms: %.1f excluded, %.1f "
            "host alone, %.1f without the exclusion (daemon CPU %.0f | %.0f | %.0f ms). A "
            "rebuild in process (fs_refresh_bench, 20 runs), CPU ms: %.2f excluded, %.2f not, "
            "%.2f host alone: the excluded rebuild still reads the overlays' lines of "
            "/proc/self/mounts"
            % (OVERLAYS, OVERLAY_DIR, CONTAINER_EXCLUSION, e["windows"],
               " ".join("%.2f" % r for r in c["cycle_ratios"]), e["rows"], h["rows"],
               o["rows"], e["wall_us"], h["wall_us"], o["wall_us"], a["wall_us"],
               e["rebuild_walk_ms"], h["rebuild_walk_ms"], o["rebuild_walk_ms"],
               e["rebuild_cpu_ms"], h["rebuild_cpu_ms"], o["rebuild_cpu_ms"],
               c["refresh_excluded"]["cpu_ms"], c["refresh_plain"]["cpu_ms"],
               c["refresh_host"]["cpu_ms"])]


def hung_mount_row(res):
    """GET latency with one hung mount against none, over the same 8,000."""
    h = res["hung_mount"]
    ratios = [h["ratio"][q] for q in ("median", "p99")]
    return ("9 GET ms (median, p99), rebuilds of %d mounts every s, one hung | none"
            % MOUNT_COUNTS[-1], "%.2f, %.2f" % (h["with"]["median"], h["with"]["p99"]),
            "%.2f, %.2f" % (h["without"]["median"], h["without"]["p99"]),
            "%.2f, %.2f" % tuple(ratios), "<= 1.1", max(ratios) <= 1.1)


def slow_mounts_row(res):
    """Rows listed of 100 mounts answering in 5 ms, and GET latency with
    them against the same answering at once."""
    h = res["slow_mounts"]
    ratios = [h["ratio"][q] for q in ("median", "p99")]
    return ("9 slow mounts: rows listed / mounted, %d x %d ms; GET ms (median, p99) | 0 ms"
            % (SLOW_MOUNTS, SLOW_MS),
            "%d / %d; %.2f, %.2f" % (h["listed"], h["mounted"], h["with"]["median"],
                                     h["with"]["p99"]),
            "%.2f, %.2f" % (h["without"]["median"], h["without"]["p99"]),
            "%.2f, %.2f" % tuple(ratios), "all listed", h["listed"] == h["mounted"])


def many_hung_row(res):
    """The live rows listed with 100 hung mounts beside them, and the
    threads those hold."""
    h = res["many_hung"]
    return ("9 many hung: live rows listed / expected, %d hung; threads held" % MANY_HUNG,
            "%d / %d; +%d" % (h["live"], h["expected"], h["threads"]), "", "",
            "all listed, <= +272", h["live"] == h["expected"] and h["hung_listed"] == 0
            and h["threads"] <= 272)


def hung_mount_note(res):
    h = res.get("hung_mount")
    if not h:
        return []
    return ["hung mount: %d and %d GETs in alternating %d s windows, one due every 2 ms (a late "
            "one counts from when it was due); figures and ratios are the middle window's; "
            "slowest %.1f | %.1f ms; its parked call: %+d thread; SIGTERM while it waits: gone "
            "after %.2f s" % (h["with"]["gets"], h["without"]["gets"], h["window_s"],
                              h["with"]["max"], h["without"]["max"], h["threads"], h["stop_s"])]


def ratio_text(a, b):
    return "%.2f" % (a / b) if b else "-"


def print_table(res):
    header = ("Figure (ours | master's comparable figure)", "ours", "master/ref", "ratio",
              "goal", "")
    body = [r[:5] + ({True: "ok", False: "MISSED", None: "", "failed": "FAILED"}[r[5]],) for r in rows(res)]
    widths = [max(len(str(r[i])) for r in [header] + body) for i in range(6)]
    line = "  ".join("%%-%ds" % w for w in widths)
    print()
    print("temhostd benchmarks, %s: figures from ONE run on a shared machine (%d processors);"
          % (time.strftime("%Y-%m-%d %H:%M"), os.cpu_count()))
    print("compare ratios rather than absolute times. Walks are GETBULK (snmpbulkwalk), best of"
          " the measured walks;\nrow 1 is the best of 10 alternating rounds of each object.")
    print(line % header)
    print(line % tuple("-" * w for w in widths))
    for r in body:
        print((line % r).rstrip())
    notes = []
    idle = res.get("idle")
    if idle and idle["seconds"] < IDLE_SECONDS:
        notes.append("idle window %.0f s, shorter than %d s (--quick): one tick is %.4f %% of a "
                     "core" % (idle["seconds"], IDLE_SECONDS, idle["tick_pct"]))
    elif idle:
        notes.append("idle CPU resolution: one tick = %.4f %% of a core over the window"
                     % idle["tick_pct"])
    notes.append("kernel floor of a refresh: reading /proc/self/mounts whole plus one statvfs "
                 "per mount point, best of 10, by bench/mount_floor_bench")
    notes.append("fs CPU per varbind: the daemon's utime+stime over walks that all end within "
                 "one %d s rebuild interval of a priming walk, so no rebuild is included (the "
                 "rebuild's own cost is the refresh row); the least of the windows counts"
                 % FS_REBUILD_INTERVAL)
    for count, f in sorted(res.get("fs", {}).items(), key=lambda kv: int(kv[0])):
        notes.append("%s tmpfs: %d mounts listed, %d varbinds per walk, %d measured walks, CPU "
                     "us/varbind by window %s%s; "
                     "refresh mean %.2f ms (min %.2f); kernel floor %.2f ms read + %.2f ms "
                     "statvfs" % (count, f["mounts"], f["ours"]["varbinds"], f["ours"]["walks"],
                                  " ".join("%.1f" % c for c in f["ours"]["cpu_windows"]),
                                  "" if f["ours"]["window_ok"] else
                                  " (a walk overran its window: a rebuild may be in)",
                                  f["refresh_ms"], f["refresh_min_ms"], f["read_ms"],
                                  f["statvfs_ms"]))
    loaded = res.get("telnet_loaded")
    if loaded:
        notes.append("loaded telnet run: /proc/net/tcp held %d lines; 90th percentiles %.2f | "
                     "%.2f ms" % (loaded["tcp_lines"], loaded["telnet_p90"],
                                  loaded["ostype_p90"]))
    for n, f in sorted(res.get("fleet", {}).items(), key=lambda kv: int(kv[0])):
        notes.append("fleet of %s hosts (scripts/beds/fleet_bed.py), each scraped every %d s through an "
                     "exporter of its module's own, over %d s: %d temhostd scrapes of %.0f "
                     "samples, %d host-resources ones (hrStorageTable, hrProcessorTable) of %.0f"
                     % (n, FLEET_INTERVAL, f["window"], f["temhostd"]["scrapes"],
                        f["temhostd"]["samples"], f["hostres"]["scrapes"],
                        f["hostres"]["samples"]))
    notes += hung_mount_note(res)
    notes += container_note(res)
    if any(r[5] == "FAILED" for r in body):
        notes.append("FAILED rows: their step failed; the sessions' output is in " + res["_log"])
    print()
    for n in notes:
        print(textwrap.fill("note: " + n, width=100, subsequent_indent="      "))
    missed = [r[0] for r in body if r[5] in ("MISSED", "FAILED")]
    print("goals missed or not measured: %s" % (", ".join(missed) if missed else "none"))


def main(argv):
    quick = "--quick" in argv
    only = [a.split("=", 1)[1] for a in argv if a.startswith("--only=")]
    args = [a for a in argv if a != "--quick" and not a.startswith("--only=")]
    if args[:1] == ["--phase"]:
        global progress
        phase, build, path, fd = args[1:5]
        progress = os.fdopen(int(fd), "w")
        with open(path) as f:
            res = json.load(f)
        {"reconnect": phase_reconnect, "main": phase_main, "hung": phase_hung,
         "container": phase_container, "container_excluded": phase_container_excluded}[phase](
            build, res, quick)
        res["done_" + phase] = True
        save(res)
        return 0
    if len(args) != 1 or os.environ.get("TEMHOSTD_PRIVATE_HOST") != "1":
        print("usage: bench/run-all [--quick]   (runs this inside a private host)",
              file=sys.stderr)
        return 2
    build = os.path.abspath(args[0])
    # The sessions' own output (the agents' log lines, any step's traceback)
    # goes to a log beside the build, outside the private host.
    res = {"_path": "/tmp/temhostd-bench.json", "_log": os.path.join(build, "run-all.log")}
    save(res)
    write_package_db()
    conf = write_sibling_mib()
    progress_fd = os.dup(sys.stderr.fileno())
    with open(res["_log"], "w") as session_log:
        # The fleet first: its hosts copy this host's mounts, which the file
        # system step leaves at 8,000.
        if not only:
            log("fleet")
            try:
                step_fleet(build, res, quick)
            except Exception:  # the other figures still come
                session_log.write(traceback.format_exc())
            save(res)
        for phase in only or ("reconnect", "container", "container_excluded", "main", "hung"):
            log("session: " + phase)
            if phase == "hung":  # its daemon rebuilds every second
                os.makedirs("/var/sma_snmp", exist_ok=True)
                with open("/var/sma_snmp/temhostd.conf", "a") as f:
                    f.write("defaultPollFreq(sec) 1\n")
            # The daemon reads its exclusions at start: a session of its own.
            if phase == "container_excluded":
                os.makedirs("/etc/snmp", exist_ok=True)
                with open("/etc/snmp/temhostd.conf", "a") as f:
                    f.write(CONTAINER_EXCLUSION + "\n")
            cmd = [sys.executable, os.path.join(BEDS, "agent_bed.py"), "--master-conf", conf, build,
                   sys.executable, os.path.abspath(__file__), "--phase", phase, build,
                   res["_path"], str(progress_fd)] + (["--quick"] if quick else [])
            session_log.write("=== session %s\n" % phase)
            session_log.flush()
            # The reconnect session replaces the master that the bed
            # started (and stops its own): the phase's own mark, not the
            # session's status, tells whether the figures are complete.
            subprocess.run(cmd, stdout=session_log, stderr=subprocess.STDOUT,
                           pass_fds=[progress_fd])
            with open(res["_path"]) as f:
                if not json.load(f).get("done_" + phase):
                    log("session %s did not finish; see %s" % (phase, res["_log"]))
            if phase == "container_excluded":
                unmount_overlays(OVERLAYS)  # whatever the session left
                with open("/etc/snmp/temhostd.conf") as f:
                    kept = [x for x in f if x.strip() != CONTAINER_EXCLUSION]
                with open("/etc/snmp/temhostd.conf", "w") as f:
                    f.writelines(kept)
    with open(res["_path"]) as f:
        res = json.load(f)
    print_table(res)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
