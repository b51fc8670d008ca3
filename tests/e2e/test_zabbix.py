# SPDX-License-Identifier: Apache-2.0
"""The Zabbix template (contrib/zabbix) in Debian's own Zabbix servers
(scripts/beds/zabbix_bed.py). Debian 12's Zabbix 6.0 monitors two hosts of the
fleet bed (scripts/beds/fleet_bed.py): its items carry what snmpget reads, also once
the daemon has renumbered the file system rows and no discovery has run
since, and a stopped watched process or a filled spool raises its trigger
on that host alone, which ends when it is put right. Debian 13's Zabbix 7.0
imports the same file into the same objects."""

import os
import subprocess
import time

import pytest
import yaml

from conftest import BUILD, SOURCE, wait_for
from fleet_bed import Fleet
from fleet_host import APP, SPOOL
from zabbix_bed import Zabbix

TEMPLATE = os.path.join(SOURCE, "contrib", "zabbix", "temhostd_by_snmp.yaml")
NAME = "temhostd by SNMP"
ROOT = "1.3.6.1.4.1.32473.11"
MB = 1048576


def template_text():
    with open(TEMPLATE) as f:
        return f.read()


def file_counts(text):
    """What the file defines: items, discovery rules, item prototypes,
    trigger prototypes and triggers of the template."""
    t = yaml.safe_load(text)["zabbix_export"]
    items, rules = t["templates"][0]["items"], t["templates"][0]["discovery_rules"]
    protos = [p for r in rules for p in r["item_prototypes"]]
    return {"item": len(items), "discoveryrule": len(rules), "itemprototype": len(protos),
            "triggerprototype": sum(len(r.get("trigger_prototypes", [])) for r in rules)
            + sum(len(p.get("trigger_prototypes", [])) for p in protos),
            "trigger": sum(len(i.get("triggers", [])) for i in items) + len(t.get("triggers", []))}


def imported_counts(z):
    tid = z.call("template.get", {"filter": {"host": [NAME]}, "output": ["templateid"]})[0]["templateid"]
    return tid, {kind: int(z.call(kind + ".get", {"templateids": [tid], "countOutput": True}))
                 for kind in ("item", "discoveryrule", "itemprototype", "triggerprototype", "trigger")}


def every_5s(text):
    """The template with every update interval 5 s, nothing else changed."""
    doc = yaml.safe_load(text)
    t = doc["zabbix_export"]["templates"][0]
    for obj in t["items"] + t["discovery_rules"] + [p for r in t["discovery_rules"]
                                                    for p in r["item_prototypes"]]:
        obj["delay"] = "5s"
    return yaml.safe_dump(doc)


def snmp(cmd, addr, oid):
    return subprocess.run([cmd, "-v2c", "-c", "public", "-On", "-Oq", "-Oe"]
                          + (["-Ov"] if cmd == "snmpget" else []) + [addr, oid],
                          capture_output=True, text=True, check=True).stdout


def fs_rows(addr):
    """Row number of each mount point."""
    rows = {}
    for line in snmp("snmpwalk", addr, ROOT + ".2.4.1.1.2").splitlines():
        oid, desc = line.split(" ", 1)
        rows[desc.strip('"').split(" On ", 1)[1]] = oid.rsplit(".", 1)[1]
    return rows


def expected(host):
    """What snmpget reads from the host, by item key."""
    addr = host.plan["addr"]
    got = lambda oid: snmp("snmpget", addr, ROOT + oid).strip().strip('"')
    want = {"temhostd.memory.total": int(got(".2.13.1.0")) * MB,
            "temhostd.paging.total": int(got(".2.13.3.0")) * MB,
            "temhostd.role": got(".2.2.6.0"), "temhostd.role.detail": got(".2.2.7.0"),
            "temhostd.guid": got(".2.10.3.0"), "temhostd.os.name": got(".2.2.1.0"),
            "temhostd.os.release": got(".2.2.2.0"), "temhostd.version": got(".2.7.3.0"),
            "temhostd.mib.condition": int(got(".1.3.0")),
            "temhostd.enterprise.condition": int(got(".2.10.1.0").split()[1], 16)}
    rows = fs_rows(addr)  # each mount's row, found by its description as the template does
    for mount in (SPOOL, "/var/agentx"):
        want["temhostd.fs.total[%s]" % mount] = int(got(".2.4.1.1.3." + rows[mount])) * MB
        want["temhostd.fs.used[%s]" % mount] = int(got(".2.4.1.1.4." + rows[mount])) * MB
    want["temhostd.sw.status[%s]" % APP] = 2
    return want


def test_template_monitors_the_fleet_and_raises_per_host():
    if not BUILD:
        pytest.skip("run through tests/e2e/run.sh")
    with Fleet(BUILD, 2, prometheus=False) as fleet, Zabbix(server=True) as z:
        try:
            text = template_text()
            assert z.import_template(text)
            tid, counts = imported_counts(z)
            assert counts == file_counts(text)
            assert z.import_template(every_5s(text))
            group = z.call("hostgroup.create", {"name": "temhostd fleet"})["groupids"][0]
            hosts = {}
            for h in fleet.hosts:
                hosts[h.name] = z.call("host.create", {
                    "host": h.name, "groups": [{"groupid": group}], "templates": [{"templateid": tid}],
                    "inventory_mode": 1,
                    "interfaces": [{"type": 2, "main": 1, "useip": 1, "ip": h.plan["addr"], "dns": "",
                                    "port": "161", "details": {"version": 2, "bulk": 1,
                                                               "community": "public"}}],
                    # The fleet's own spools and the agent's socket directory; the
                    # rest are this machine's, the same on every host. Short hold
                    # and rate windows for a test.
                    "macros": [{"macro": "{$TEMHOSTD.FS.PATH.MATCHES}",
                                "value": "^(%s|/var/agentx)$" % SPOOL},
                               {"macro": "{$TEMHOSTD.SW.NOT_RUNNING.PERIOD}", "value": "10s"},
                               {"macro": "{$TEMHOSTD.FS.TIMELEFT.PERIOD}", "value": "30s"}]})["hostids"][0]

            def items(hostid):
                return z.call("item.get", {"hostids": [hostid],
                                           "output": ["key_", "lastvalue", "lastclock"]})

            def values(hostid, since=1):
                """Last values of hostid's items, read at or after since."""
                return {i["key_"]: i["lastvalue"] for i in items(hostid) if int(i["lastclock"]) >= since}

            def agree(h, since=1):
                """The items of host h that snmpget reads too, when they agree
                (those of its file systems read at or after since)."""
                want, got = expected(h), values(hosts[h.name])
                fresh = values(hosts[h.name], since)
                got = {k: v for k, v in got.items() if not k.startswith("temhostd.fs.") or k in fresh}
                if want.keys() <= got.keys() and {k: type(want[k])(
                        float(got[k]) if isinstance(want[k], int) else got[k]) for k in want} == want:
                    return want
                return None

            for h in fleet.hosts:
                want = wait_for(lambda: agree(h), timeout=120, interval=2, what="the items of " + h.name)
                cpus = [i["key_"] for i in items(hosts[h.name])
                        if i["key_"].startswith("temhostd.cpu.util[") and i["key_"].endswith(",1m]")]
                assert len(cpus) == len(h.plan["busy"]), (h.name, cpus)
                inventory = z.call("host.get", {"hostids": [hosts[h.name]], "selectInventory":
                                                ["type", "type_full", "serialno_b", "os_short"]})
                assert inventory[0]["inventory"] == {
                    "type": want["temhostd.role"], "type_full": want["temhostd.role.detail"],
                    "serialno_b": want["temhostd.guid"], "os_short": want["temhostd.os.name"]}

            # No discovery on host1 from now on: only the poll-time lookup by
            # description can keep its values on their mounts when its rows renumber.
            rule = z.call("discoveryrule.get", {"hostids": [hosts["host1"]], "filter": {
                "key_": "temhostd.fs.discovery"}, "output": ["itemid"]})[0]["itemid"]
            z.call("discoveryrule.update", {"itemid": rule, "status": 1})
            host1 = fleet.host("host1")
            before = fs_rows(host1.plan["addr"])
            host1.command("remount")
            wait_for(lambda: fs_rows(host1.plan["addr"])[SPOOL] != before[SPOOL], timeout=30,
                     interval=1, what="the rows renumbered")
            renumbered = int(time.time()) + 1  # values read from then on
            wait_for(lambda: agree(host1, renumbered), timeout=60, interval=2,
                     what="host1's items after renumbering")

            def problems():
                return sorted((t["hosts"][0]["host"], t["description"]) for t in z.call("trigger.get", {
                    "hostids": list(hosts.values()), "filter": {"value": 1}, "expandDescription": True,
                    "selectHosts": ["host"], "output": ["description"]}))

            assert problems() == []
            fleet.host("host1").command("stop-app")
            fleet.host("host2").command("fill")
            wait_for(lambda: problems() == [("host1", APP + ": Not running"),
                                            ("host2", SPOOL + ": File system is nearly full")],
                     timeout=90, interval=2, what="the two triggers")
            fleet.host("host1").command("start-app")
            fleet.host("host2").command("clear")
            wait_for(lambda: problems() == [], timeout=90, interval=2, what="the triggers to end")
            broken = z.call("item.get", {"hostids": list(hosts.values()), "filter": {"state": 1},
                                         "output": ["key_", "error"]})
            assert broken == [], broken
        except BaseException:
            print(fleet.logs())
            print(z.logs())
            raise


def test_template_imports_into_zabbix_7():
    if not BUILD:
        pytest.skip("run through tests/e2e/run.sh")
    tree = subprocess.run([os.path.join(SOURCE, "scripts", "debian13-tools.sh")], check=True,
                          capture_output=True, text=True).stdout.strip()
    with Zabbix(tree) as z:
        try:
            assert z.version.startswith("7.0."), z.version
            text = template_text()
            assert z.import_template(text)
            assert imported_counts(z)[1] == file_counts(text)
        except BaseException:
            print(z.logs())
            raise
