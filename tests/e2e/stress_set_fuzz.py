# SPDX-License-Identifier: Apache-2.0
"""Random SETs under the subtree (random types, lengths, values, several
varbinds a request) against the sanitizer build: afterwards the daemon
still answers, serves only values a valid SET or the host could have
produced, and the sanitizers reported nothing."""

import random
import re
import subprocess

from conftest import AGENT, READY_OIDS, ROOT, RW_COMMUNITY, get, get_hex, octets, walk

REQUESTS = 400
# The writable texts and the longest value each takes.
TEXT_LIMITS = {ROOT + ".2.2.6.0": 64, ROOT + ".2.2.7.0": 512, ROOT + ".2.8.1.0": 254,
               ROOT + ".2.8.2.0": 511}
GUID, POLL, SW_KIND = ROOT + ".2.10.3.0", ROOT + ".2.1.4.1.0", ROOT + ".2.7.2.1.3"


def random_value(rng):
    kind = rng.choice("iiuutaosssxx")
    if kind in "iu":
        return kind, str(rng.choice([0, 1, 5, 6, 900, 901, -1, 2 ** 31 - 1, -2 ** 31,
                                     rng.randint(-10 ** 6, 10 ** 6)]) % (2 ** 32 if kind == "u"
                                                                         else 2 ** 64))
    if kind == "t":
        return kind, str(rng.randint(0, 2 ** 32 - 1))
    if kind in "ao":
        n, top = (4, 255) if kind == "a" else (rng.randint(2, 12), 2 ** 32 - 1)
        return kind, "." * (kind == "o") + ".".join(str(rng.randint(0, top)) for _ in range(n))
    length = rng.choice([0, 1, 15, 16, 17, 18, 63, 64, 65, 127, 128, 254, 255, 256, 511, 512, 513,
                         rng.randint(0, 1400)])
    if kind == "s":
        return kind, "".join(rng.choice("abcXYZ 09-_.") for _ in range(length))
    return kind, "".join("%02x" % rng.randint(0, 255) for _ in range(length))


def random_oid(rng, known):
    oid = rng.choice(known)
    if rng.random() < 0.3:
        parts = oid.split(".")
        cut = rng.randint(len(ROOT.split(".")), len(parts))
        oid = ".".join(parts[:cut] + [str(rng.randint(0, 2 ** 32 - 1))
                                      for _ in range(rng.randint(0, 3))])
    return oid


def length(oid):
    return len(octets(get_hex(oid)))


def test_random_sets_leave_only_valid_values(bed):
    bed.start_master()
    d = bed.start_daemon()
    known = [v.oid for v in walk(ROOT)] + list(TEXT_LIMITS) + [GUID, POLL]
    guid_before = length(GUID)
    rng = random.Random(2026)
    for _ in range(REQUESTS):
        args = []
        for _ in range(rng.randint(1, 4)):
            kind, value = random_value(rng)
            args += [random_oid(rng, known), kind, value]
        subprocess.run(["snmpset", "-v2c", "-c", RW_COMMUNITY, "-t", "3", "-r", "0", "-On",
                        AGENT, *args], capture_output=True, timeout=30)

    assert d.running(), d.output()[-3000:]
    assert all("No Such Object" not in v.text for v in get(*READY_OIDS))
    for oid, limit in TEXT_LIMITS.items():
        assert length(oid) <= limit, oid
    assert length(GUID) in (guid_before, 16, 17)
    assert get(POLL).int == 0, "polling stays off"
    for v in walk(SW_KIND):
        assert not v.oid.startswith(SW_KIND + ".") or 1 <= v.int <= 5, v
    d.stop()
    assert not re.search("Sanitizer|runtime error", d.output()), d.output()[-3000:]
