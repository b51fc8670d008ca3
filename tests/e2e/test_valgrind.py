# SPDX-License-Identifier: Apache-2.0
"""The daemon under valgrind through a whole life: start, a walk of the
subtree, a SET of every writable object, a clean stop. No memory error, no
leak, and no descriptor left open at exit but the standard three."""

import re
import signal

from conftest import ROOT, set_, walk

WRITABLE = [(ROOT + ".2.2.6.0", "s", "Web"), (ROOT + ".2.2.7.0", "s", "front end"),
            (ROOT + ".2.8.1.0", "s", "disk replaced"), (ROOT + ".2.8.2.0", "s", "patch 7"),
            (ROOT + ".2.10.3.0", "s", "0123456789ABCDEF"), (ROOT + ".2.1.4.1.0", "i", 30),
            (ROOT + ".2.7.2.1.3.1", "i", 4)]  # a valid SET of each writable object


def test_a_whole_life_under_valgrind(bed):
    with open("/var/lib/dpkg/status", "w") as f:
        f.write("Package: KYQtem\nStatus: install ok installed\nVersion: 1.0\n"
                "Description: host agent\n\n")
    bed.write_persistent("defaultPollFreq(sec) 60\n")  # so the poll frequency takes a SET
    bed.start_master()
    d = bed.start_daemon(wrapper=["valgrind", "--leak-check=full", "--track-fds=yes",
                                  "--errors-for-leak-kinds=definite,indirect",
                                  "--error-exitcode=99"], timeout=120)
    assert len(walk(ROOT)) > 20
    for triple in WRITABLE:
        set_(triple)
    status = d.stop(signal.SIGTERM, timeout=120)
    out = d.output()
    assert "ERROR SUMMARY: 0 errors" in out and status != 99, out[-4000:]  # 99: error or leak
    opened = re.search(r"FILE DESCRIPTORS: (\d+) open(?: \((\d+) std\))? at exit", out)
    assert opened and opened.group(1) == (opened.group(2) or "3") == "3", out[-4000:]
