# SPDX-License-Identifier: Apache-2.0
"""Test bed: Debian's snmpd as AgentX master, temhostd as subagent and
Net-SNMP's tools as the manager, inside the private namespaces of run.sh.
Every test gets fresh tmpfs state; everything started is stopped again."""

import collections
import os
import re
import signal
import subprocess
import time

import pytest

BUILD = os.environ.get("TEMHOSTD_BUILD", "")
DAEMON = os.path.join(BUILD, "bin", "temhostd")
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
ROOT, AGENT = "1.3.6.1.4.1.32473.11", "127.0.0.1"
RO_COMMUNITY, RW_COMMUNITY = "meadow", "harbor"
FRESH_DIRS = ["/run", "/var/agentx", "/var/sma_snmp", "/var/lib/snmp", "/var/log", "/etc/snmp"]
MASTER_CONF = ("agentaddress udp:127.0.0.1:161\nmaster agentx\nrocommunity %s 127.0.0.1\n"
               "rwcommunity %s 127.0.0.1\n" % (RO_COMMUNITY, RW_COMMUNITY))
# One object per module: all answer once the daemon has registered everything.
with open(os.path.join(SOURCE, "scripts", "ready-oids")) as _f:
    READY_OIDS = [l.split()[0] for l in _f if l.split() and not l.startswith("#")]
PERSIST_FILE, PID_FILE = "/var/sma_snmp/temhostd.conf", "/var/run/temhostd.pid"
SAVED_COPY = PERSIST_FILE + ".saf"
# One line per trap: "TRAP|version|enterprise|generic|specific|wrapper|" and
# the bindings "oid = TYPE: value" joined by "~" (version 0 SNMPv1, 1 v2c, 3 v3).
TRAP_LOG = "/var/log/traps.log"
TRAP_FORMAT = "TRAP|%s|%N|%w|%q|%P|%V~%v\\n"


def wait_for(predicate, timeout=10.0, interval=0.1, what="condition"):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = predicate()
        if result:
            return result
        time.sleep(interval)
    raise AssertionError("timed out waiting for " + what)


def check_walk_rebuilds(interval, change, shows):
    """Walks rebuild a list at most every `interval` s: change(n) makes change
    n (0, then 1), shows(n) walks and tells if it shows. Change 1 shows no
    sooner than interval - 1 s (whole seconds) after the walk that first
    showed change 0 began, and at the first walk begun interval s after it."""
    walks = ([], [])  # (start, end, shown) of each walk after change n
    for n, after in enumerate(walks):
        change(n)
        deadline = time.monotonic() + interval + 30
        while not after or not after[-1][2]:
            assert time.monotonic() < deadline, "change %d never shows" % n
            time.sleep(0.5 if after else 0)
            start = time.monotonic()
            shown = shows(n)
            after.append((start, time.monotonic(), shown))
    start, end, _ = walks[0][-1]
    assert walks[1][-1][1] - start > interval - 1, "rebuilt too soon"
    assert all(s < end + interval for s, _, _ in walks[1][:-1]), "rebuild overdue"


def catches_stop_signals(pid):
    """SIGTERM and SIGINT handlers in place (the daemon answers before that)."""
    try:
        with open("/proc/%d/status" % pid) as f:
            caught = int(next(l for l in f if l.startswith("SigCgt:")).split()[1], 16)
    except (OSError, StopIteration):
        return False
    return caught & 0x4002 == 0x4002  # bits of signals 2 and 15


class SnmpError(Exception):
    """args: the tools' reason (noSuchName, wrongLength, ...), their output."""


class Value(collections.namedtuple("Value", "oid kind text")):
    """One binding as the tools print it with -On."""
    int = property(lambda self: int(self.text))
    str = property(lambda self: self.text[1:-1] if self.text[:1] == '"' else self.text)


def parse_values(output):
    values = []
    for line in output.splitlines():
        m = re.match(r'^\.([0-9.]+) = (?:([A-Za-z0-9-]+): )?(.*)$', line)
        if m:
            values.append(Value(m.group(1), m.group(2) or "", m.group(3)))
        elif values:  # a multi-line string continues
            values[-1] = values[-1]._replace(text=values[-1].text + "\n" + line)
    return values


def tool(cmd, *args, community=RO_COMMUNITY, version="2c", timeout=30):
    """community None: the client defaults of /etc/snmp/snmp.conf."""
    auth = ["-v", version, "-c", community] if community else []
    p = subprocess.run([cmd, *auth, "-On", "-Oe", "-t", "3", "-r", "1", *args], text=True,
                       capture_output=True, timeout=timeout, env=dict(os.environ, MIBS=""))
    out = p.stdout + p.stderr
    m = re.search(r"Reason: \(?(\w+)\)?", out)
    if m or p.returncode:
        raise SnmpError(m.group(1) if m else "failed", out)
    return out


def get(*oids, community=RO_COMMUNITY, hex=False, cmd="snmpget"):
    """hex: octet strings printed as hex, for octets()."""
    values = parse_values(tool(cmd, *(["-Ox"] if hex else []), AGENT, *oids, community=community))
    return values[0] if len(oids) == 1 else values


def getnext(*oids):
    return get(*oids, cmd="snmpgetnext")


def octets(value):
    return [int(h, 16) for h in re.findall(r"\b[0-9A-Fa-f]{2}\b", value.text)]


def walk(oid=ROOT, bulk=False):  # the tools fail a walk whose OIDs do not increase
    return parse_values(tool("snmpbulkwalk" if bulk else "snmpwalk", AGENT, oid))


def table_rows(entry, column=None):
    """{index: {column: Value}} from a walk of a table entry (or one column)."""
    table, prefix = {}, entry + (".%d" % column if column else "")
    for v in walk(prefix):
        if v.oid.startswith(prefix + "."):  # an empty table reports the prefix itself
            col, index = (int(x) for x in v.oid[len(entry) + 1:].split("."))
            table.setdefault(index, {})[col] = v
    return table


def set_(*triples, community=RW_COMMUNITY):
    """set_((oid, type letter, value), ...)"""
    args = [str(x) for triple in triples for x in triple]
    return parse_values(tool("snmpset", AGENT, *args, community=community))


def set_error(*triples):
    with pytest.raises(SnmpError) as e:
        set_(*triples)
    return e.value.args[0]


class Process:
    def __init__(self, argv, log_path, **kw):
        self.log_path, self.log = log_path, open(log_path, "ab")
        self.proc = subprocess.Popen(argv, stdout=self.log, stderr=subprocess.STDOUT,
                                     stdin=subprocess.DEVNULL, **kw)
        self.pid = self.proc.pid

    def running(self):
        return self.proc.poll() is None

    def stop(self, sig=signal.SIGTERM, timeout=10):
        if self.running():
            self.proc.send_signal(sig)
            try:
                self.proc.wait(timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        self.log.close()
        return self.proc.returncode

    def output(self):
        if not self.log.closed:
            self.log.flush()
        with open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")


class Bed:
    def __init__(self):
        self.master = self.trap_receiver = None
        self.daemons, self.mounts = [], []

    def mount_tmpfs(self, path, size_mb=0):
        """size_mb 0: a fresh directory of the default size."""
        os.makedirs(path, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=%dm" % size_mb if size_mb
                        else "mode=0755", "tmpfs", path], check=True)
        self.mounts.append(path)

    def start_master(self, extra_conf="", base_conf=MASTER_CONF, probe_community=RO_COMMUNITY):
        """base_conf replaces the bed's configuration; probe_community then
        names one that may read sysUpTime.0 (None: snmp.conf's defaults)."""
        with open("/etc/snmp/snmpd.conf", "w") as f:
            f.write(base_conf + extra_conf)
        self.master = Process(["/usr/sbin/snmpd", "-f", "-Lf", "/var/log/master.log",
                               "-p", "/run/snmpd.pid"], "/var/log/master.out")

        def answers():
            try:
                return tool("snmpget", AGENT, "1.3.6.1.2.1.1.3.0", community=probe_community)
            except (SnmpError, subprocess.TimeoutExpired):
                return False
        wait_for(lambda: os.path.exists("/var/agentx/master") and answers(), what="the master")

    def start_trap_receiver(self, conf=""):
        """snmptrapd on 127.0.0.1:162 taking every community; conf: more lines."""
        with open("/etc/snmp/snmptrapd.conf", "w") as f:
            f.write("disableAuthorization yes\n" + conf)
        self.trap_receiver = Process(
            ["/usr/sbin/snmptrapd", "-f", "-C", "-c", "/etc/snmp/snmptrapd.conf", "-Lf", TRAP_LOG,
             "-p", "/run/snmptrapd.pid", "-On", "-F", TRAP_FORMAT, "udp:127.0.0.1:162"],
            "/var/log/snmptrapd.out", env=dict(os.environ, MIBS=""))
        wait_for(lambda: os.path.exists(TRAP_LOG) and "NET-SNMP" in open(TRAP_LOG).read(),
                 what="the trap receiver")

    def traps(self):
        """[(version, enterprise, generic, specific, [(oid, value)...], wrapper)]"""
        out = []
        for line in open(TRAP_LOG, errors="replace").read().split("\n"):
            if line.startswith("TRAP|"):
                _, version, enterprise, generic, specific, wrapper, rest = line.split("|", 6)
                binds = [(o.strip().lstrip("."), v) for o, v in
                         (b.split(" = ", 1) for b in rest.split("~") if " = " in b)]
                out.append((int(version), enterprise.lstrip("."), generic,
                            specific.lstrip("."), binds, wrapper))
        return out

    def freeze(self, *paths):
        """Binds a copy of each /proc file over it: its figures hold still."""
        for path in paths:
            copy = "/run/frozen-" + os.path.basename(path)
            with open(path) as src, open(copy, "w") as dst:
                dst.write(src.read())
            subprocess.run(["mount", "--bind", copy, path], check=True)
            self.mounts.append(path)

    def write_persistent(self, text):
        os.makedirs("/var/sma_snmp", exist_ok=True)
        with open(PERSIST_FILE, "w") as f:
            f.write(text)

    def start_daemon(self, *args, wait=True, wrapper=(), timeout=20):
        """wrapper: a command the daemon runs under (valgrind, say)."""
        d = Process([*wrapper, DAEMON, *args], "/var/log/temhostd-%d.out" % len(self.daemons))
        self.daemons.append(d)
        if wait:
            self.wait_daemon(d, timeout)
        return d

    def wait_daemon(self, d, timeout=20, interval=0.1, community=RO_COMMUNITY):
        wait_for(lambda: self.daemon_answers(d, community), timeout=timeout, interval=interval,
                 what="temhostd to answer")

    def daemon_answers(self, d, community=RO_COMMUNITY):
        assert d.running(), "temhostd exited with %s:\n%s" % (d.proc.returncode, d.output())
        try:
            values = get(*READY_OIDS, community=community)
        except SnmpError:
            return False
        return all("No Such Object" not in v.text for v in values) and catches_stop_signals(d.pid)

    def run_daemon(self, *args, wrapper=(), timeout=20):
        """Runs the daemon to its end: (status, stdout, stderr)."""
        p = subprocess.run([*wrapper, DAEMON, *args], capture_output=True, text=True,
                           timeout=timeout, stdin=subprocess.DEVNULL)
        return p.returncode, p.stdout, p.stderr


@pytest.fixture
def bed():
    if not BUILD:
        pytest.skip("run through tests/e2e/run.sh")
    b = Bed()
    try:
        for d in FRESH_DIRS:
            b.mount_tmpfs(d)
        yield b
    finally:
        for p in [*b.daemons, b.master, b.trap_receiver]:
            if p:
                p.stop()
        for path in reversed(b.mounts):
            subprocess.run(["umount", "-l", path], check=False)
