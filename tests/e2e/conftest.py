# SPDX-License-Identifier: Apache-2.0
"""Test bed: Debian's snmpd as AgentX master, temhostd as subagent, and
Net-SNMP's command-line tools as the manager. Runs only inside the private
namespaces that run.sh sets up; every test gets fresh tmpfs state and every
process started is stopped again, also when the test fails."""

import os
import re
import signal
import subprocess
import time

import pytest

BUILD = os.environ.get("TEMHOSTD_BUILD", "")
DAEMON = os.path.join(BUILD, "bin", "temhostd")
ROOT, AGENT = "1.3.6.1.4.1.32473.11", "127.0.0.1"
RO_COMMUNITY, RW_COMMUNITY = "meadow", "harbor"

# Fresh for every test: what the master and the daemon write.
FRESH_DIRS = ["/run", "/var/agentx", "/var/sma_snmp", "/var/lib/snmp", "/var/log", "/etc/snmp"]

MASTER_CONF = """agentaddress udp:127.0.0.1:161
master agentx
rocommunity {ro} 127.0.0.1
rwcommunity {rw} 127.0.0.1
""".format(ro=RO_COMMUNITY, rw=RW_COMMUNITY)

# The daemon is ready when an object of every module answers (a table row
# may be missing, but not the table: "No Such Object" means unregistered).
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts",
                       "ready-oids")) as _f:
    READY_OIDS = [l.split("#")[0].split()[0] for l in _f if l.split("#")[0].strip()]

PERSIST_FILE, PID_FILE = "/var/sma_snmp/temhostd.conf", "/var/run/temhostd.pid"
SAVED_COPY = PERSIST_FILE + ".saf"

# The trap receiver logs one line per trap: "TRAP|version|enterprise|generic|
# specific|wrapper|" then the bindings "oid = TYPE: value" joined by "~"
# (version 0 is SNMPv1, 1 SNMPv2c, 3 SNMPv3; the wrapper names the PDU type
# and the community or user). TRAP_SINKS makes it the master's destination.
TRAP_LOG = "/var/log/traps.log"
TRAP_FORMAT = "TRAP|%s|%N|%w|%q|%P|%V~%v\\n"
TRAP_SINKS = "trapsink 127.0.0.1 {c}\ntrap2sink 127.0.0.1 {c}\n".format(c=RO_COMMUNITY)


def wait_for(predicate, timeout=10.0, interval=0.1, what="condition"):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = predicate()
        if result:
            return result
        time.sleep(interval)
    raise AssertionError("timed out waiting for " + what)


def check_walk_rebuilds(interval, change, shows):
    """Walks rebuild a list at most every `interval` s: change(n) makes
    change n (0, then 1), shows(n) walks and tells whether it shows. After
    each change, a walk every half second until one shows. The walk showing
    change 0 rebuilt the list; in the daemon's whole seconds, change 1 then
    shows more than interval - 1 s after that walk began, and at the first
    walk begun interval s after it ended."""
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
    """True once the daemon has installed its SIGTERM and SIGINT handlers
    (it answers the master before that, while still registering)."""
    try:
        with open("/proc/%d/status" % pid) as f:
            caught = int(next(l for l in f if l.startswith("SigCgt:")).split()[1], 16)
    except (OSError, StopIteration):
        return False
    wanted = (1 << (signal.SIGTERM - 1)) | (1 << (signal.SIGINT - 1))
    return caught & wanted == wanted


class SnmpError(Exception):
    def __init__(self, reason, output):
        super().__init__(reason + ": " + output)
        self.reason = reason


class Value:
    """One variable binding as the tools print it with -On."""

    def __init__(self, oid, kind, text):
        self.oid, self.kind, self.text = oid, kind, text

    @property
    def int(self):
        return int(self.text)

    @property
    def str(self):
        t = self.text
        return t[1:-1] if len(t) > 1 and t[0] == t[-1] == '"' else t

    def __repr__(self):
        return "%s = %s: %s" % (self.oid, self.kind, self.text)


_LINE = re.compile(r'^(\.[0-9.]+) = (?:([A-Za-z0-9-]+): )?(.*)$')


def parse_values(output):
    values = []
    for line in output.splitlines():
        m = _LINE.match(line)
        if m:
            values.append(Value(m.group(1).lstrip("."), m.group(2) or "", m.group(3)))
        elif values:  # a multi-line string value continues here
            values[-1].text += "\n" + line
    return values


def tool(cmd, *args, community=RO_COMMUNITY, version="2c", timeout=30):
    """community None: the client defaults of /etc/snmp/snmp.conf (SNMPv3, say)."""
    auth = ["-v", version, "-c", community] if community else []
    argv = [cmd, *auth, "-On", "-Oe", "-t", "3", "-r", "1", *args]
    proc = subprocess.run(argv, capture_output=True, text=True, timeout=timeout,
                          env=dict(os.environ, MIBS=""))
    out = proc.stdout + proc.stderr
    m = re.search(r"Reason: \(?(\w+)\)?", out)
    if m:
        raise SnmpError(m.group(1), out)
    if proc.returncode != 0:
        raise SnmpError("failed", out)
    return out


def get(*oids, community=RO_COMMUNITY, options=()):
    values = parse_values(tool("snmpget", *options, AGENT, *oids, community=community))
    return values[0] if len(oids) == 1 else values


def get_hex(*oids, community=RO_COMMUNITY):
    """GET with every octet string printed as hex (read with octets())."""
    return get(*oids, community=community, options=["-Ox"])


def octets(value):
    return [int(h, 16) for h in re.findall(r"\b[0-9A-Fa-f]{2}\b", value.text)]


def getnext(oid):
    return parse_values(tool("snmpgetnext", AGENT, oid))[0]


def walk(oid=ROOT, bulk=False):
    # the tools fail a walk whose OIDs do not increase: every walk checks order
    return parse_values(tool("snmpbulkwalk" if bulk else "snmpwalk", AGENT, oid))


def table_rows(entry, column=None):
    """{index: {column: Value}} from a walk of a table entry (or one column)."""
    table = {}
    prefix = entry + (".%d" % column if column else "")
    for v in walk(prefix):
        if v.oid.startswith(prefix + "."):  # an empty table reports the prefix itself
            col, index = (int(x) for x in v.oid[len(entry) + 1:].split("."))
            table.setdefault(index, {})[col] = v
    return table


def set_(*triples, community=RW_COMMUNITY):
    """set_((oid, type, value), ...): type is the tools' letter (i, s, ...)."""
    args = [str(x) for triple in triples for x in triple]
    return parse_values(tool("snmpset", AGENT, *args, community=community))


def set_error(*triples):
    with pytest.raises(SnmpError) as e:
        set_(*triples)
    return e.value.reason


class Process:
    def __init__(self, argv, log_path, **kw):
        self.log_path = log_path
        self.log = open(log_path, "ab")
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
        return open(self.log_path, "rb").read().decode(errors="replace")


def _as_user(argv, user):
    if user is None:
        return argv
    return ["setpriv", "--reuid", str(user), "--regid", str(user), "--clear-groups", *argv]


class Bed:
    def __init__(self):
        self.master = self.trap_receiver = None
        self.daemons, self.mounts = [], []

    def mount_tmpfs(self, path, size_mb):
        """size_mb 0: the bed's own fresh directories, of the default size."""
        os.makedirs(path, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=%dm" % size_mb if size_mb
                        else "mode=0755", "tmpfs", path], check=True)
        self.mounts.append(path)

    def start_master(self, extra_conf="", base_conf=MASTER_CONF, probe_community=RO_COMMUNITY):
        """base_conf replaces the bed's own configuration (then give a
        community that may read sysUpTime.0 as probe_community)."""
        with open("/etc/snmp/snmpd.conf", "w") as f:
            f.write(base_conf + extra_conf)
        self.master = Process(["/usr/sbin/snmpd", "-f", "-Lf", "/var/log/master.log",
                               "-p", "/run/snmpd.pid"], "/var/log/master.out")

        def answers():
            try:
                return tool("snmpget", AGENT, "1.3.6.1.2.1.1.3.0", community=probe_community)
            except (SnmpError, subprocess.TimeoutExpired):
                return False
        wait_for(lambda: os.path.exists("/var/agentx/master") and answers(),
                 what="the master agent")

    def start_trap_receiver(self, *options, log=TRAP_LOG, conf=""):
        """snmptrapd on 127.0.0.1:162 taking every community (conf: more
        lines for its configuration); options replace the numeric one-line
        format that traps() reads."""
        with open("/etc/snmp/snmptrapd.conf", "w") as f:
            f.write("disableAuthorization yes\n" + conf)
        self.trap_receiver = Process(
            ["/usr/sbin/snmptrapd", "-f", "-C", "-c", "/etc/snmp/snmptrapd.conf", "-Lf", log,
             "-p", "/run/snmptrapd.pid", *(options or ["-On", "-F", TRAP_FORMAT]),
             "udp:127.0.0.1:162"], "/var/log/snmptrapd.out", env=dict(os.environ, MIBS=""))
        wait_for(lambda: os.path.exists(log) and "NET-SNMP" in open(log).read(),
                 what="the trap receiver")

    def traps(self):
        """[(version, enterprise, generic, specific, [(oid, value text)...],
        wrapper)] in order of arrival."""
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
        """Binds a copy of each /proc file over it: its figures stop moving."""
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

    def start_daemon(self, *args, wait=True, user=None, wrapper=(), timeout=20):
        """wrapper: a command the daemon runs under (valgrind, say)."""
        d = Process(_as_user([*wrapper, DAEMON, *args], user),
                    "/var/log/temhostd-%d.out" % len(self.daemons))
        self.daemons.append(d)
        if wait:
            self.wait_daemon(d, timeout)
        return d

    def wait_daemon(self, d, timeout=20, interval=0.1, community=RO_COMMUNITY):
        wait_for(lambda: self.daemon_answers(d, community), timeout=timeout, interval=interval,
                 what="temhostd to answer")

    def daemon_answers(self, d, community=RO_COMMUNITY):
        if not d.running():
            raise AssertionError("temhostd exited with %s:\n%s" % (d.proc.returncode,
                                                                   d.output()))
        try:
            values = get(*READY_OIDS, community=community)
        except SnmpError:
            return False
        return (all("No Such Object" not in v.text for v in values)
                and catches_stop_signals(d.pid))

    def run_daemon(self, *args, user=None, timeout=20):
        """Runs the daemon to completion; returns (status, stdout, stderr)."""
        p = subprocess.run(_as_user([DAEMON, *args], user), capture_output=True, text=True,
                           timeout=timeout, stdin=subprocess.DEVNULL)
        return p.returncode, p.stdout, p.stderr

    def stop_all(self):
        for p in [*self.daemons, self.master, self.trap_receiver]:
            if p:
                p.stop()
        for path in reversed(self.mounts):
            subprocess.run(["umount", "-l", path], check=False)


@pytest.fixture
def bed():
    if not os.environ.get("TEMHOSTD_BUILD"):
        pytest.skip("run through tests/e2e/run.sh")
    b = Bed()
    try:
        for d in FRESH_DIRS:
            b.mount_tmpfs(d, 0)
        yield b
    finally:
        b.stop_all()
