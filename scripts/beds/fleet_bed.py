# SPDX-License-Identifier: Apache-2.0
"""A fleet on one machine: N private hosts, each a fleet_host.py in
network, mount, process and host-name namespaces of its own with snmpd,
temhostd, a watched application ("orderd") and its own mounts,
processors, watch list, GUID and role (started by the agent bed,
agent_bed.py); one Debian prometheus-snmp-exporter and one Debian
prometheus scraping them all with contrib/prometheus's module, rules,
alerts and console pages. The exporter and Prometheus are this host's, or
those of a Debian tree (the Debian 13 tools of scripts/debian13-tools.sh):
the bed proves the files on each release's programs.

Runs as root inside a private host (scripts/in-private-host.sh), the
fleet's "monitor" namespace. Host i is reached at 127.100.i.2 over a veth
pair whose monitor end is 127.100.i.1: loopback-range addresses (routed
between namespaces with route_localnet), so no packet of the fleet carries
an address that could be anyone else's. /etc/hosts (the private host's
copy) names them host1 .. hostN, the instance labels.

Used by tests/e2e/test_fleet.py, tests/e2e/test_zabbix.py, bench/run_all.py
and scripts/fleet.py (the demo's fleet)."""

import json
import math
import os
import subprocess
import threading
import time
import urllib.parse
import urllib.request

import yaml

from agent_bed import SOURCE, Process, wait_for
from fleet_host import sh

HERE = os.path.dirname(os.path.abspath(__file__))

CONTRIB = os.path.join(SOURCE, "contrib", "prometheus")
WORK = "/run/fleet"
EXPORTER, PROMETHEUS = "127.0.0.1:9116", "127.0.0.1:9090"
ROLES = [("web", "front end, orders shop"), ("database", "orders database primary"),
         ("batch", "nightly invoicing"), ("cache", "session cache"), ("mail", "outbound mail")]
CPU_COUNTS = [2, 4, 1, 8, 2]
STAT_WIDTH = 14  # digits of every tick count, so that the file never changes length


def host_plan(i):
    """Host i (from 1): processors and their busy shares, spool use, role."""
    role, detail = ROLES[(i - 1) % len(ROLES)]
    cpus = CPU_COUNTS[(i - 1) % len(CPU_COUNTS)]
    return {"index": i, "name": "host%d" % i, "addr": "127.100.%d.2" % i,
            "peer": "127.100.%d.1" % i, "dir": "%s/host%d" % (WORK, i), "role": role,
            "detail": detail, "guid": "F1EE7%011X" % i, "spool_mb": 2 + (i * 5) % 11,
            "busy": [0.05 + 0.9 * ((i * 7 + k * 3) % 10) / 10 for k in range(cpus)]}


class Host:
    def __init__(self, build, plan):
        self.plan, self.name = plan, plan["name"]
        os.makedirs(os.path.join(plan["dir"], "log"))
        self.write_processors()
        with open(os.path.join(plan["dir"], "log", "host.out"), "w") as err:
            self.proc = subprocess.Popen(
                ["unshare", "--net", "--mount", "--uts", "--pid", "--fork", "--kill-child",
                 "--mount-proc", "--propagation", "private", "--", "/usr/bin/python3",
                 os.path.join(HERE, "fleet_host.py"), build],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=err, text=True)

    def write_processors(self):
        """/sys/devices/system/cpu and /proc/stat as this host's processors show them."""
        cpu = os.path.join(self.plan["dir"], "cpu")
        n = len(self.plan["busy"])
        for k in range(n):
            os.makedirs(os.path.join(cpu, "cpu%d" % k))
        for name in ("present", "online", "possible"):
            with open(os.path.join(cpu, name), "w") as f:
                f.write("0-%d\n" % (n - 1) if n > 1 else "0\n")
        with open("/proc/stat") as f:  # btime and the rest, as they are
            self.stat_tail = "".join(l for l in f if not l.startswith("cpu"))
        self.ticks = [[0.0, 0.0] for _ in range(n)]  # busy, idle
        self.stat = open(os.path.join(self.plan["dir"], "stat"), "w+")
        self.tick(0)

    def tick(self, seconds, now=0.0):
        """Advances each processor by seconds at its busy share, which drifts
        slowly so that the graphs have something to show."""
        for k, share in enumerate(self.plan["busy"]):
            share = min(1.0, max(0.0, share + 0.05 * math.sin(now / 40 + k)))
            self.ticks[k][0] += 100 * seconds * share
            self.ticks[k][1] += 100 * seconds * (1 - share)
        line = lambda name, busy, idle: "%s %s\n" % (name, " ".join(
            "%0*d" % (STAT_WIDTH, v) for v in (busy, 0, 0, idle, 0, 0, 0, 0, 0, 0)))
        text = line("cpu ", sum(t[0] for t in self.ticks), sum(t[1] for t in self.ticks))
        text += "".join(line("cpu%d" % k, *t) for k, t in enumerate(self.ticks))
        os.pwrite(self.stat.fileno(), (text + self.stat_tail).encode(), 0)  # one write, same size

    def setup(self):
        """Once the host's namespaces exist: its link, then its agents."""
        assert self.proc.stdout.readline() == "ready\n", self.log()
        link = "fl%d" % self.plan["index"]
        sh("ip", "link", "add", link, "type", "veth", "peer", "name", "eth0", "netns",
           str(self.proc.pid))
        sh("ip", "addr", "add", self.plan["peer"] + "/24", "dev", link)
        sh("ip", "link", "set", link, "up")
        sh("sysctl", "-qw", "net.ipv4.conf.%s.route_localnet=1" % link)
        self.proc.stdin.write(json.dumps(self.plan) + "\n")
        self.proc.stdin.flush()

    def wait_up(self):
        assert self.proc.stdout.readline() == "up\n", self.log()

    def command(self, cmd):
        self.proc.stdin.write(cmd + "\n")
        self.proc.stdin.flush()
        assert self.proc.stdout.readline() == "ok\n", self.log()

    def log(self):
        logs = os.path.join(self.plan["dir"], "log")
        return "".join("--- %s:\n%s" % (name, open(os.path.join(logs, name), errors="replace")
                                         .read()[-3000:]) for name in sorted(os.listdir(logs)))

    def stop(self):
        try:
            self.proc.stdin.close()
            self.proc.wait(30)
        except (OSError, subprocess.TimeoutExpired):
            self.proc.kill()
            self.proc.wait()
        self.stat.close()


def debian13_tools():
    """The root of the Debian 13 tree of tools. Built beforehand (the
    tests' ctest fixture): a private host has no network to build it."""
    return subprocess.run([os.path.join(SOURCE, "scripts", "debian13-tools.sh")],
                          capture_output=True, text=True, check=True).stdout.strip()


def exporter_module(exporter):
    """The module file for this exporter program: snmp_exporter 0.21
    (Debian 12's) keeps the credentials in its modules, later ones apart."""
    version = subprocess.run([exporter, "--version"], capture_output=True, text=True,
                             check=True)
    old = "version 0.21." in version.stdout + version.stderr
    return os.path.join(CONTRIB, "snmp-0.21.yml" if old else "snmp.yml")


def monitor_programs(root):
    """(prometheus argv, exporter path) of the Debian tree at root, or of
    this host (root ""). Debian's prometheus serves /classic/static from
    /usr/share/prometheus/web, whose links lead through /usr/share/javascript
    to /usr/share/nodejs: a tree's Prometheus runs with the tree's
    /usr/share bound there, in a mount namespace of its own."""
    exporter = root + "/usr/bin/prometheus-snmp-exporter" if root else "prometheus-snmp-exporter"
    if not root:
        return ["prometheus"], exporter
    return (["unshare", "--mount", "--propagation", "private", "--", "sh", "-c",
             'mount --bind "$0/usr/share" /usr/share && exec "$0/usr/bin/prometheus" "$@"', root],
            exporter)


def derived_alerts(path, duration):
    """The shipped alerting rules with every `for:` set to duration, and
    nothing else changed."""
    with open(os.path.join(CONTRIB, "temhostd-alerts.yml")) as f:
        rules = yaml.safe_load(f)
    for group in rules["groups"]:
        for rule in group["rules"]:
            rule["for"] = duration
    with open(path, "w") as f:
        yaml.safe_dump(rules, f)
    return path


class Fleet:
    """n hosts; interval: scrape and evaluation; alert_for: every alert's
    `for:` (None: as shipped); jobs: more scrape jobs (prometheus.yml
    entries as dicts); tools: the Debian tree whose Prometheus and exporter
    run ("": this host's). The exporter reads the module file of its
    version. prometheus: False for the hosts alone, with no exporter or
    Prometheus."""
    def __init__(self, build, n=3, interval="2s", alert_for=None, jobs=(), tools="",
                 prometheus=True):
        self.build, self.n, self.interval, self.alert_for = build, n, interval, alert_for
        self.jobs, self.tools, self.prometheus = list(jobs), tools, prometheus
        self.hosts, self.procs, self.ticker, self.exporter = [], [], None, None
        self.stopping = threading.Event()

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *exc):
        self.close()

    def start(self):
        os.makedirs(WORK, exist_ok=True)
        sh("mount", "-t", "tmpfs", "-o", "mode=0755", "fleet", WORK)
        self.hosts = [Host(self.build, host_plan(i)) for i in range(1, self.n + 1)]
        with open("/etc/hosts", "a") as f:  # the private host's copy
            f.write("".join("%s %s\n" % (h.plan["addr"], h.name) for h in self.hosts))
        for h in self.hosts:
            h.setup()
        self.ticker = threading.Thread(target=self.tick, daemon=True)
        self.ticker.start()
        if self.prometheus:
            self.start_monitor()
        for h in self.hosts:
            h.wait_up()
        if self.prometheus:
            # By the label the agent-down alert selects on: the README's job sets it.
            wait_for(lambda: self.query('count(up{module="temhostd"} == 1)') == [self.n],
                     timeout=30, what="every host scraped")

    def tick(self):
        start = last = time.monotonic()
        while not self.stopping.wait(1.0):
            now = time.monotonic()
            for h in self.hosts:
                h.tick(now - last, now - start)
            last = now

    def start_monitor(self):
        rules = [os.path.join(CONTRIB, "temhostd-rules.yml"),
                 derived_alerts(WORK + "/alerts.yml", self.alert_for) if self.alert_for
                 else os.path.join(CONTRIB, "temhostd-alerts.yml")]
        jobs = [{"job_name": "temhostd", "metrics_path": "/snmp",
                 # auth: the credentials' name for exporters from 0.23; 0.21 ignores it
                 "params": {"module": ["temhostd"], "auth": ["temhostd"]},
                 "static_configs": [{"targets": [h.name for h in self.hosts]}],
                 "relabel_configs": [
                     {"source_labels": ["__address__"], "target_label": "__param_target"},
                     {"source_labels": ["__param_target"], "target_label": "instance"},
                     {"source_labels": ["__param_module"], "target_label": "module"},
                     {"target_label": "__address__", "replacement": EXPORTER}]},
                {"job_name": "snmp_exporter", "static_configs": [{"targets": [EXPORTER]}]},
                *self.jobs]
        config = {"global": {"scrape_interval": self.interval, "scrape_timeout": self.interval,
                             "evaluation_interval": self.interval},
                  "rule_files": rules, "scrape_configs": jobs}
        with open(WORK + "/prometheus.yml", "w") as f:
            json.dump(config, f)  # JSON is YAML
        os.makedirs(WORK + "/tsdb")  # its own tmpfs: the hosts' overlays never see it grow
        sh("mount", "-t", "tmpfs", "tsdb", WORK + "/tsdb")
        prometheus, exporter = monitor_programs(self.tools)
        self.exporter = Process([exporter, "--config.file=" + exporter_module(exporter),
                                 "--web.listen-address=" + EXPORTER], WORK + "/exporter.log")
        self.procs.append(self.exporter)
        consoles = os.path.join(CONTRIB, "consoles")
        self.procs.append(Process(
            prometheus + ["--config.file=" + WORK + "/prometheus.yml",
             "--storage.tsdb.path=" + WORK + "/tsdb", "--web.listen-address=" + PROMETHEUS,
             "--web.console.templates=" + consoles, "--web.console.libraries=" + consoles],
            WORK + "/prometheus.log"))
        wait_for(lambda: self.get("/-/ready", quiet=True), timeout=30, what="prometheus")

    def get(self, path, quiet=False):
        """The body of a GET of Prometheus; quiet: None instead of an error."""
        try:
            with urllib.request.urlopen("http://%s%s" % (PROMETHEUS, path), timeout=30) as r:
                return r.read().decode()
        except OSError:
            if quiet:
                return None
            raise

    def query(self, expr):
        """The values of an instant query, sorted."""
        body = json.loads(self.get("/api/v1/query?" + urllib.parse.urlencode({"query": expr})))
        return sorted(float(s["value"][1]) for s in body["data"]["result"])

    def alerts(self, name, state="firing"):
        """[labels] of alert name in the given state."""
        body = json.loads(self.get("/api/v1/alerts"))
        return [a["labels"] for a in body["data"]["alerts"]
                if a["labels"]["alertname"] == name and a["state"] == state]

    def host(self, name):
        return next(h for h in self.hosts if h.name == name)

    def logs(self):
        return "".join(h.log() for h in self.hosts) + "".join(
            "--- %s:\n%s" % (p.log_path, p.output()[-3000:]) for p in self.procs)

    def close(self):
        self.stopping.set()
        if self.ticker:
            self.ticker.join()
        for h in self.hosts:
            h.stop()
        for p in reversed(self.procs):
            p.stop()
        subprocess.run(["umount", "-R", WORK], check=False, stderr=subprocess.DEVNULL)
