# SPDX-License-Identifier: Apache-2.0
"""Three hosts of the fleet bed (scripts/beds/fleet_bed.py) behind one exporter and
one Prometheus with the shipped alerts, their `for:` shortened: an alert
names the host at fault and no other, and ends when it is put right.
Headless Chromium renders the console pages through a proxy that lets only
Prometheus' own address through: no template error, no script error, no
failed or outside request. The screenshots go to BUILD_DIR/fleet-*.png.
Twice: with this host's Prometheus and exporter (Debian 12's 2.42 and 0.21
here), and with Debian 13's (2.53 and 0.28, from the tree of
scripts/debian13-tools.sh), each reading the module file of its version."""

import http.server
import json
import os
import re
import subprocess
import tempfile
import threading
import urllib.error
import urllib.request

import pytest

from conftest import BUILD, wait_for
from fleet_bed import PROMETHEUS, Fleet, debian13_tools
from fleet_host import APP, SPOOL

CHROMIUM = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
            "--no-first-run", "--disable-background-networking", "--disable-component-update",
            "--disable-sync", "--enable-logging=stderr", "--v=0", "--virtual-time-budget=10000",
            "--window-size=1400,1200", "--proxy-bypass-list=<-loopback>"]
ARTEFACTS = 3  # run.sh opens the build directory here, outside the private host


class Proxy(http.server.ThreadingHTTPServer):
    """Forwards GETs for Prometheus, refuses the rest; notes (status, url) of
    each but Chromium's own requests (no referrer), refused unnoted."""
    def __init__(self):
        self.seen = []
        proxy = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                status, body, kind = 403, b"", "text/plain"
                if self.path.startswith("http://%s/" % PROMETHEUS):
                    try:
                        with urllib.request.urlopen(self.path, timeout=30) as r:
                            status, body, kind = r.status, r.read(), r.headers["Content-Type"]
                    except urllib.error.HTTPError as e:
                        status, body = e.code, e.read()
                if status != 403 or self.headers["Referer"]:  # not Chromium's own
                    proxy.seen.append((status, self.path))
                self.send_response(status)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *args):
                pass
        super().__init__(("127.0.0.1", 0), Handler)


def keep(png):
    """A screenshot as an artefact of the build."""
    with open(png, "rb") as src:
        fd = os.open(os.path.basename(png), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644,
                     dir_fd=ARTEFACTS)
        with open(fd, "wb") as dst:
            dst.write(src.read())


def render(page, png):
    """Chromium's DOM of a console page, once it has run its scripts; its
    screenshot goes to BUILD_DIR/png."""
    proxy = Proxy()
    threading.Thread(target=proxy.serve_forever, daemon=True).start()
    try:
        with tempfile.TemporaryDirectory() as tmp:
            p = subprocess.run(CHROMIUM + ["--user-data-dir=" + tmp + "/profile",
                                           "--proxy-server=127.0.0.1:%d" % proxy.server_port,
                                           "--screenshot=%s/%s" % (tmp, png), "--dump-dom",
                                           "http://%s/consoles/%s" % (PROMETHEUS, page)],
                               capture_output=True, text=True, timeout=90)
            if os.path.exists(os.path.join(tmp, png)):
                keep(os.path.join(tmp, png))
    finally:
        proxy.shutdown()
    assert p.returncode == 0, p.stderr
    failed = [(s, url) for s, url in proxy.seen if s != 200]
    assert proxy.seen and not failed, "failed requests: %s" % failed
    assert not re.findall(r".*:CONSOLE.*", p.stderr), "script errors on " + page
    return p.stdout


def debian_versions(root):
    """Upstream versions of Prometheus and the exporter installed in the
    Debian tree at root ("": this host)."""
    out = subprocess.run(["dpkg-query", "--admindir=%s/var/lib/dpkg" % root, "-W",
                          "-f=${Version}\n", "prometheus", "prometheus-snmp-exporter"],
                         capture_output=True, text=True, check=True).stdout
    return [re.sub(r"^\d+:|[+~-].*$", "", v) for v in out.split()]


def check_fleet(tools, prefix):
    """The fleet with the Prometheus and exporter of tools (a Debian tree,
    "" for this host's); prefix: of the screenshots' names."""
    if not BUILD:
        pytest.skip("run through tests/e2e/run.sh")
    with Fleet(BUILD, 3, alert_for="6s", tools=tools) as fleet:
        def alerts(state="firing"):
            # File systems other than the hosts' own spools are this machine's,
            # the same on every host; they are left out.
            return {"soft": sorted((a["instance"], a["name"]) for a in
                                   fleet.alerts("TemhostdSoftwareNotRunning", state)),
                    "full": sorted((a["instance"], a["description"]) for a in
                                   fleet.alerts("TemhostdFileSystemFull", state)
                                   if a["description"].endswith(" " + SPOOL))}
        try:
            # The release's own programs run, not this host's by mistake.
            prometheus, exporter = debian_versions(tools)
            running = json.loads(fleet.get("/api/v1/status/buildinfo"))["data"]["version"]
            assert running.startswith(prometheus), (running, prometheus)
            # (the exporter's own metrics exist from Prometheus' first scrape of it)
            wait_for(lambda: fleet.query('snmp_exporter_build_info{version="%s"}' % exporter) == [1],
                     timeout=30, interval=0.5, what="the exporter %s's build info" % exporter)
            # ... and its Prometheus serves its own release's scripts and styles.
            asset = "bootstrap4/css/bootstrap.min.css"
            with open("%s/usr/share/javascript/%s" % (tools, asset)) as f:
                assert fleet.get("/classic/static/" + asset) == f.read()
            assert alerts() == alerts("pending") == {"soft": [], "full": []}
            fleet.host("host1").command("stop-app")
            fleet.host("host2").command("fill")
            want = {"soft": [("host1", APP)], "full": [("host2", "tmpfs On " + SPOOL)]}
            wait_for(lambda: alerts() == want, timeout=45, interval=1, what="the two alerts")
            cpus = [len(h.plan["busy"]) for h in fleet.hosts]  # each host's processors fixture
            wait_for(lambda: fleet.query("count by (instance) (temhostd_cpu_busy_1m_percent)")
                     == sorted(cpus), timeout=30, interval=1, what="the first averages")

            overview = render("temhostd-fleet.html", prefix + "-overview.png")
            rows = re.findall(r'<tr class="host">.*?</tr>', overview, re.S)
            assert [re.search(r">(host\d)</a>", r).group(1) for r in rows] == \
                ["host1", "host2", "host3"]
            assert ['danger">%s<' % APP in r for r in rows] == [True, False, False]
            host = render('temhostd-host.html?job=temhostd&instance=host2#pctc%7B%22duration'
                          '%22%3A300%2C%22endTime%22%3A0%7D', prefix + "-host.png")
            assert len(re.findall(r'<tr class="cpu">', host)) == cpus[1]
            fs = re.findall(r'<tr class="fs"><td>\d+</td><td>([^<]*)</td>', host)
            assert "tmpfs On " + SPOOL in fs and "tmpfs On /var/agentx" in fs, fs
            sw = re.findall(r'<tr class="sw"><td>\d+</td><td>([^<]*)</td>.*?'
                            r'badge-\w+">([^<]*)</span>', host, re.S)
            assert sw == [(APP, "running"), ("snmpd", "running"), ("temhostd", "running")], sw

            fleet.host("host1").command("start-app")
            fleet.host("host2").command("clear")
            wait_for(lambda: alerts() == alerts("pending") == {"soft": [], "full": []},
                     timeout=45, interval=1, what="the alerts to end")
        except BaseException:
            print(fleet.logs())
            raise


def test_alerts_name_the_host_at_fault_and_the_pages_render():
    check_fleet("", "fleet")


def test_alerts_and_pages_with_debian13_prometheus():
    check_fleet(debian13_tools(), "fleet-debian13")
