# SPDX-License-Identifier: Apache-2.0
"""The one agent bed: Debian's snmpd as AgentX master (configured from
master-base.conf, beside it), temhostd as its subagent, snmptrapd as receiver
and Net-SNMP's tools as the manager, inside a private host
(scripts/in-private-host.sh). The end-to-end tests, bench/run-all, the demo
and the fleet bed all start their agents here.

As a command (what scripts/with-agents.sh runs):

    agent_bed.py [--master-conf FILE] BUILD_DIR COMMAND [ARG...]

starts the master (with FILE's lines added) and the daemon of BUILD_DIR,
runs COMMAND once both answer, then stops the daemon and the master, in
that order, and exits with COMMAND's status."""

import collections
import os
import re
import signal
import socket
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
ROOT, AGENT = "1.3.6.1.4.1.32473.11", "127.0.0.1"
RO_COMMUNITY, RW_COMMUNITY = "meadow", "harbor"
SYS_UPTIME = "1.3.6.1.2.1.1.3.0"
FRESH_DIRS = ["/run", "/var/agentx", "/var/sma_snmp", "/var/lib/snmp", "/var/log", "/etc/snmp"]


def _listed(name):
    """The lines of a file beside this one that are not comments."""
    with open(os.path.join(HERE, name)) as f:
        return [l for l in f if l.split() and not l.startswith("#")]


MASTER_CONF = "".join(_listed("master-base.conf"))
MASTER_PID_FILE = "/run/snmpd.pid"
MASTER_CMD = ["/usr/sbin/snmpd", "-f", "-Lf", "/var/log/master.log", "-p", MASTER_PID_FILE]
# One object per module: all answer once the daemon has registered everything.
READY_OIDS = [l.split()[0] for l in _listed("ready-oids")]
PERSIST_FILE, PID_FILE = "/var/sma_snmp/temhostd.conf", "/var/run/temhostd.pid"
SAVED_COPY, RUN_MARKER = PERSIST_FILE + ".saf", "/var/sma_snmp/temhostd.running"
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


def get_ms(oid, community=RO_COMMUNITY):
    """One SNMPv2c GET of oid, without a tool's start-up: (milliseconds, the
    reply's bytes). A reply ending in 80 00 is noSuchObject."""
    def tlv(tag, body):
        n = len(body)
        return bytes([tag]) + (bytes([n]) if n < 128 else bytes([0x82, n >> 8, n & 255])) + body

    def base128(n):
        out = [n & 127]
        while n > 127:
            n >>= 7
            out.insert(0, 128 | n & 127)
        return bytes(out)
    arcs = [int(x) for x in oid.split(".")]
    name = bytes([40 * arcs[0] + arcs[1]]) + b"".join(base128(a) for a in arcs[2:])
    pdu = tlv(0xa0, tlv(2, b"\1") + tlv(2, b"\0") * 2 +
              tlv(0x30, tlv(0x30, tlv(6, name) + b"\5\0")))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.settimeout(10)
        start = time.monotonic()
        s.sendto(tlv(0x30, tlv(2, b"\1") + tlv(4, community.encode()) + pdu), (AGENT, 161))
        reply = s.recv(65536)
    return (time.monotonic() - start) * 1000, reply


def set_(*triples, community=RW_COMMUNITY):
    """set_((oid, type letter, value), ...)"""
    args = [str(x) for triple in triples for x in triple]
    return parse_values(tool("snmpset", AGENT, *args, community=community))


def hung_fuse_mount(path):
    """A FUSE file system at path whose server never answers: every call on
    it waits until the descriptor returned, which nobody reads, is closed
    (then a lazy unmount)."""
    os.makedirs(path, exist_ok=True)
    fd = os.open("/dev/fuse", os.O_RDWR)
    subprocess.run(["mount", "-t", "fuse.hung", "-o", "fd=%d,rootmode=40000,user_id=0,group_id=0"
                    % fd, "hung", path], pass_fds=[fd], check=True)
    return fd


def start_slow_fuse(paths, delay_ms):
    """slow_fuse.py serving paths, once they are all mounted; its
    stop() unmounts them."""
    p = Process(["/usr/bin/python3", os.path.join(HERE, "slow_fuse.py"), str(delay_ms), *paths],
                None)
    wanted = set(paths)

    def mounted():
        with open("/proc/self/mounts") as f:
            return wanted <= {l.split()[1] for l in f if l.startswith("slow ")}
    wait_for(mounted, timeout=60, what="the slow mounts")
    return p


class Process:
    """log_path None: the output goes where this program's goes."""
    def __init__(self, argv, log_path, **kw):
        self.log_path, self.log = log_path, open(log_path, "ab") if log_path else None
        self.proc = subprocess.Popen(argv, stdout=self.log, stderr=self.log and subprocess.STDOUT,
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
        if self.log:
            self.log.close()
        return self.proc.returncode

    def output(self):
        if not self.log.closed:
            self.log.flush()
        with open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")


class Bed:
    """build: the build directory whose daemon (bin/temhostd) runs."""
    def __init__(self, build):
        self.daemon = os.path.join(build, "bin", "temhostd")
        self.master = self.trap_receiver = None
        self.daemons, self.mounts, self.fuse_fds = [], [], []
        self.slow_fuse = None

    def fresh_host(self):
        """Empty state, configuration and run directories for this bed alone."""
        for d in FRESH_DIRS:
            self.mount_tmpfs(d)

    def close(self):
        """Stops what the bed started, the daemons before their master."""
        for p in [*self.daemons, self.master, self.trap_receiver, self.slow_fuse]:
            if p:
                p.stop()
        for fd in self.fuse_fds:  # every call waiting on a hung mount returns
            os.close(fd)
        for path in reversed(self.mounts):
            subprocess.run(["umount", "-l", path], check=False)

    def mount_tmpfs(self, path, size_mb=0):
        """size_mb 0: a fresh directory of the default size."""
        os.makedirs(path, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=%dm" % size_mb if size_mb
                        else "mode=0755", "tmpfs", path], check=True)
        self.mounts.append(path)

    def hang_mount(self, path):
        """hung_fuse_mount, undone by close()."""
        self.fuse_fds.append(hung_fuse_mount(path))
        self.mounts.append(path)

    def slow_mounts(self, paths, delay_ms):
        """Live FUSE mounts at paths answering after delay_ms
        (slow_fuse.py), unmounted by close()."""
        self.slow_fuse = start_slow_fuse(paths, delay_ms)

    def start_master(self, extra_conf="", base_conf=MASTER_CONF, probe_community=RO_COMMUNITY):
        """base_conf replaces the bed's configuration; probe_community then
        names one that may read sysUpTime.0 (None: snmp.conf's defaults)."""
        for d in ("/etc/snmp", "/var/agentx", "/var/log"):
            os.makedirs(d, exist_ok=True)
        with open("/etc/snmp/snmpd.conf", "w") as f:
            f.write(base_conf + extra_conf)
        self.master = Process(MASTER_CMD, "/var/log/master.out")

        def answers():
            try:
                return tool("snmpget", AGENT, SYS_UPTIME, community=probe_community)
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

    def start_daemon(self, *args, wait=True, wrapper=(), timeout=20, log=True):
        """wrapper: a command the daemon runs under (valgrind, say); log
        False: its output goes where this program's goes."""
        d = Process([*wrapper, self.daemon, *args],
                    log and "/var/log/temhostd-%d.out" % len(self.daemons))
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
        p = subprocess.run([*wrapper, self.daemon, *args], capture_output=True, text=True,
                           timeout=timeout, stdin=subprocess.DEVNULL)
        return p.returncode, p.stdout, p.stderr


def main(argv):
    extra = ""
    if argv[:1] == ["--master-conf"]:
        with open(argv[1]) as f:
            extra = f.read()
        argv = argv[2:]
    if len(argv) < 2:
        print("usage: agent_bed.py [--master-conf FILE] BUILD_DIR COMMAND [ARG...]",
              file=sys.stderr)
        return 2
    os.environ["MIBS"] = ""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # still stop the agents
    bed = Bed(argv[0])
    try:
        bed.start_master(extra)
        bed.start_daemon(log=False)
        return subprocess.run(argv[1:], close_fds=False).returncode  # descriptors pass on
    finally:
        bed.close()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
