# SPDX-License-Identifier: Apache-2.0
"""A private Zabbix for the tests: its PostgreSQL cluster, the frontend's
JSON-RPC API served by PHP's built-in web server, and, where asked, the
Zabbix server itself, all from Debian's packages, either this host's
(root "/") or those of another Debian release's tree (scripts/
debian-image.sh), which is then run read-only under an overlay whose
changes land in a tmpfs.

Runs as root inside a private host (scripts/in-private-host.sh): the
cluster listens only on a socket in its own directory, the web server and
the server only on that network namespace's loopback.
"""

import fcntl
import glob
import gzip
import hashlib
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import urllib.request

from agent_bed import Process, wait_for

API_PORT = 18080
CACHE = "/var/cache/temhostd-test"


class Zabbix:
    """tree: a Debian root to run it from, or None for this host; server:
    start zabbix_server too (with conf lines added to its configuration)."""
    def __init__(self, tree=None, server=False, server_conf="", frontend=True):
        self.procs, self.mounts, self.auth, self.bearer = [], [], None, False
        self.work = tempfile.mkdtemp(prefix="zabbix-")
        try:
            self.root = self.overlay(tree) if tree else "/"
            self.inner = tempfile.mkdtemp(prefix="zabbix-", dir=self.path("/tmp"))[len(self.root.rstrip("/")):]
            os.chmod(self.path(self.inner), 0o755)  # the cluster runs as postgres
            self.start_database()
            if frontend:
                self.start_frontend()
            if server:
                self.start_server(server_conf)
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def path(self, inner):
        """A path of the root as seen from here."""
        return os.path.join(self.root, inner.lstrip("/"))

    def overlay(self, tree):
        """tree read-only under a tmpfs of changes, with /proc and /dev."""
        sh("mount", "-t", "tmpfs", "zabbix", self.work)
        self.mounts.append(self.work)
        for d in ("upper", "work", "root"):
            os.mkdir(os.path.join(self.work, d))
        root = os.path.join(self.work, "root")
        sh("mount", "-t", "overlay", "overlay", "-o", "lowerdir=%s,upperdir=%s/upper,workdir=%s/work"
           % (tree, self.work, self.work), root)
        self.mounts.append(root)
        sh("mount", "-t", "proc", "proc", root + "/proc")
        sh("mount", "--rbind", "/dev", root + "/dev")
        self.mounts += [root + "/proc", root + "/dev"]
        return root

    def command(self, argv, user=None):
        """argv run in the root, as user."""
        spec = ["--userspec=%s:%s" % (user, user)] if user else []
        return ["chroot"] + spec + [self.root] + argv

    def start_database(self):
        """The cluster, from the cache when it holds this root's database."""
        self.data, self.socket = self.inner + "/pg", self.inner + "/pg-socket"
        os.mkdir(self.path(self.socket))
        # The root's own postgres user: another tree's ids need not be ours.
        sh(*self.command(["chown", "postgres:postgres", self.socket]))
        self.pg = sorted(glob.glob(self.path("/usr/lib/postgresql/*/bin")))[-1][len(self.root.rstrip("/")):]
        cached = cache_path(self.root, self.pg)
        if os.path.exists(cached):
            sh("tar", "-x", "-f", cached, "-C", self.path(self.inner))
            sh(*self.command(["chown", "-R", "postgres:postgres", self.data]))
            self.start_postgres()
        else:
            self.create_database()

    def create_database(self):
        """A fresh database with the schema and Debian's data (about 30 s on
        an idle machine, minutes on a busy one)."""
        os.mkdir(self.path(self.data))
        sh(*self.command(["chown", "postgres:postgres", self.data]))
        sh(*self.command([self.pg + "/initdb", "-D", self.data, "-A", "trust", "-U", "postgres",
                          "--no-sync"], "postgres"))
        self.start_postgres()
        self.psql("postgres", "create role zabbix login; create database zabbix owner zabbix")
        sql = b"".join(gzip.open(self.path("/usr/share/zabbix-server-pgsql/%s.sql.gz" % name)).read()
                       for name in ("schema", "images", "data"))
        # The server's own host, which nothing here monitors.
        self.psql("zabbix", sql + b"update hosts set status = 1 where host = 'Zabbix server';",
                  user="zabbix")

    def start_postgres(self):
        # A throwaway cluster: nothing needs to survive a crash.
        self.postgres = Process(self.command(
            [self.pg + "/postgres", "-D", self.data, "-k", self.socket, "-c", "listen_addresses=",
             "-c", "fsync=off", "-c", "synchronous_commit=off", "-c", "full_page_writes=off"],
            "postgres"), os.path.join(self.work, "postgres.log"))
        self.procs.append(self.postgres)
        wait_for(lambda: self.psql("postgres", "select 1", check=False).returncode == 0,
                 timeout=60, interval=0.2, what="postgres")

    def keep_database(self):
        """Stops the cluster and caches its data directory for later runs."""
        self.postgres.stop(signal.SIGINT, timeout=120)  # fast shutdown, consistent on disk
        cached = cache_path(self.root, self.pg)
        os.makedirs(os.path.dirname(cached), exist_ok=True)
        sh("tar", "-c", "-f", cached + ".tmp", "-C", self.path(self.inner), "pg")
        os.rename(cached + ".tmp", cached)

    def psql(self, db, sql, user="postgres", check=True):
        return subprocess.run(self.command(["psql", "-q", "-X", "-v", "ON_ERROR_STOP=1", "-h", self.socket,
                                            "-U", user, db]),
                              input=sql if isinstance(sql, bytes) else sql.encode(),
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=check)

    def start_frontend(self):
        with open(self.path("/etc/zabbix/zabbix.conf.php"), "w") as f:
            f.write("<?php\n$DB['TYPE'] = 'POSTGRESQL';\n$DB['SERVER'] = '%s';\n$DB['PORT'] = '5432';\n"
                    "$DB['DATABASE'] = 'zabbix';\n$DB['USER'] = 'zabbix';\n$DB['PASSWORD'] = '';\n"
                    "$DB['SCHEMA'] = '';\n$DB['ENCRYPTION'] = false;\n$DB['DOUBLE_IEEE754'] = true;\n"
                    "$ZBX_SERVER_NAME = 'temhostd test';\n$IMAGE_FORMAT_DEFAULT = IMAGE_FORMAT_PNG;\n"
                    % self.socket)
        self.procs.append(Process(self.command(
            ["php", "-d", "memory_limit=512M", "-d", "max_execution_time=300", "-S",
             "127.0.0.1:%d" % API_PORT, "-t", "/usr/share/zabbix"]), os.path.join(self.work, "php.log")))
        self.version = wait_for(lambda: self.call("apiinfo.version", {}, quiet=True), timeout=30,
                                interval=0.2, what="the frontend's API")
        # From 6.4 the token goes in a header, before it in the request.
        self.bearer = tuple(map(int, self.version.split(".")[:2])) >= (6, 4)
        self.auth = self.call("user.login", {"username": "Admin", "password": "zabbix"})

    def call(self, method, params, quiet=False):
        """The result of an API call; quiet: None instead of an error when
        the API does not answer."""
        body = {"jsonrpc": "2.0", "method": method, "params": params, "id": 1}
        headers = {"Content-Type": "application/json-rpc"}
        if self.auth and self.bearer:
            headers["Authorization"] = "Bearer " + self.auth
        elif self.auth:
            body["auth"] = self.auth
        request = urllib.request.Request("http://127.0.0.1:%d/api_jsonrpc.php" % API_PORT,
                                         json.dumps(body).encode(), headers)
        try:
            with urllib.request.urlopen(request, timeout=120) as r:
                answer = json.loads(r.read())
        except (OSError, ValueError):
            if quiet:
                return None
            raise
        if "error" in answer:
            raise RuntimeError("%s: %s" % (method, answer["error"]))
        return answer["result"]

    def import_template(self, text):
        new = tuple(map(int, self.version.split(".")[:2])) >= (6, 2)
        rules = {"template_groups" if new else "groups": {"createMissing": True},
                 "templates": {"createMissing": True, "updateExisting": True},
                 "valueMaps": {"createMissing": True, "updateExisting": True},
                 "templateDashboards": {"createMissing": True, "updateExisting": True},
                 "templateLinkage": {"createMissing": True},
                 "items": {"createMissing": True, "updateExisting": True},
                 "discoveryRules": {"createMissing": True, "updateExisting": True},
                 "triggers": {"createMissing": True, "updateExisting": True},
                 "graphs": {"createMissing": True, "updateExisting": True}}
        return self.call("configuration.import", {"format": "yaml", "source": text, "rules": rules})

    def start_server(self, extra=""):
        conf = self.path(self.inner + "/zabbix_server.conf")
        with open(conf, "w") as f:
            f.write("LogFile=%s/server.log\nPidFile=%s/server.pid\nDBHost=%s\nDBName=zabbix\n"
                    "DBUser=zabbix\nDBPort=5432\nAllowRoot=1\nTimeout=5\nHousekeepingFrequency=0\n"
                    "StartPollers=2\nStartPollersUnreachable=1\nStartPingers=0\nStartDiscoverers=0\n"
                    "StartHTTPPollers=0\nStartTrappers=1\nStartLLDProcessors=1\nStartPreprocessors=2\n"
                    "StartEscalators=1\nStartAlerters=1\nStartDBSyncers=1\nStartTimers=1\n"
                    "StartReportWriters=0\nCacheUpdateFrequency=1\n%s" % (self.inner, self.inner, self.socket, extra))
        self.server_log = self.path(self.inner + "/server.log")
        self.procs.append(Process(self.command(["zabbix_server", "-f", "-c", conf[len(self.root.rstrip("/")):]]),
                                  os.path.join(self.work, "server.out")))
        wait_for(lambda: os.path.exists(self.server_log) and
                 "server #0 started" in open(self.server_log, errors="replace").read(),
                 timeout=60, interval=0.2, what="zabbix_server")

    def logs(self):
        out = ""
        for p in self.procs:
            out += "--- %s:\n%s" % (p.log_path, p.output()[-3000:])
        if getattr(self, "server_log", None) and os.path.exists(self.server_log):
            out += "--- server.log:\n" + open(self.server_log, errors="replace").read()[-6000:]
        return out

    def close(self):
        for p in reversed(self.procs):
            p.stop()
        self.procs = []
        if self.root == "/" and getattr(self, "inner", None):
            shutil.rmtree(self.inner, ignore_errors=True)
        for m in reversed(self.mounts):
            subprocess.run(["umount", "-R", m], check=False, stderr=subprocess.DEVNULL)
        self.mounts = []
        shutil.rmtree(self.work, ignore_errors=True)


def sh(*cmd):
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)


def cache_path(root, pg):
    """Where the loaded database of this root's Zabbix and PostgreSQL is kept."""
    key = hashlib.sha256(pg.encode())
    for name in ("schema", "images", "data"):
        st = os.stat(os.path.join(root, "usr/share/zabbix-server-pgsql/%s.sql.gz" % name))
        key.update(b"%d %d" % (st.st_size, st.st_mtime))
    return "%s/zabbix-db-%s.tar" % (CACHE, key.hexdigest()[:12])


def prepare(tree=None):
    """Loads and caches the database of this host's Zabbix (tree None) or
    of a tree's, unless it is cached already. Runs outside any private host
    (the cache must outlive it), in a mount namespace of its own."""
    root = tree or "/"
    pg = sorted(glob.glob(os.path.join(root, "usr/lib/postgresql/*/bin")))[-1][len(root.rstrip("/")):]
    cached = cache_path(root, pg)
    os.makedirs(CACHE, exist_ok=True)
    with open(cached + ".lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # one load at a time; the others use it
        if not os.path.exists(cached):
            z = Zabbix(tree, frontend=False)
            try:
                z.keep_database()
            finally:
                z.close()
    return cached


def main(argv):
    """zabbix_bed.py --prepare [TREE...]: caches the databases of this host's
    Zabbix and of each tree's (as root; in a mount namespace of its own)."""
    if argv[:1] != ["--prepare"]:
        print("usage: zabbix_bed.py --prepare [TREE...]", file=sys.stderr)
        return 2
    if os.environ.get("TEMHOSTD_ZABBIX_NS") != "1":
        os.environ["TEMHOSTD_ZABBIX_NS"] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", "--",
                              sys.executable, os.path.abspath(__file__)] + argv)
    for tree in [None] + argv[1:]:
        print(prepare(tree))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
