#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Prints the path of a minimal Debian bookworm tree that boots with systemd
# as pid 1 (systemd-nspawn --boot), after building it from Debian's archive
# (the mirror of this host's apt sources) when this machine has none yet:
# about a minute. It holds what a fresh host that Ansible manages has
# (python3, python3-apt) and nothing of SNMP; snmpd, the Net-SNMP tools and
# procps wait, with their dependencies, in its apt cache, so that packages
# needing them install without any network.
#
# The tree lives under /var/cache/temhostd-test, outside any clone, named
# after this script's contents, and must not be changed: boot throwaway
# copies of it (systemd-nspawn --volatile=overlay).
#
# Usage: scripts/bookworm-image.sh   (as root)
set -eu
cache=/var/cache/temhostd-test
image=$cache/bookworm-$(sha256sum <"$0" | cut -c1-12)

mkdir -p $cache
exec 9>$cache/lock
flock 9 # one build at a time; the others wait for it and use it
if [ ! -d "$image" ]; then
    # The first source for bookworm, one-line or deb822 format.
    mirror=$(for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list \
        /etc/apt/sources.list.d/*.sources; do [ ! -f "$f" ] || { cat "$f"; echo; }; done | awk '
        function found() { if (uri != "" && suite) { print uri; uri = ""; exit } uri = ""; suite = 0 }
        /^deb / { sub(/ \[[^]]*\]/, ""); if ($3 == "bookworm") { print $2; exit } }
        /^URIs:/ { uri = $2 }
        /^Suites:/ { for (i = 2; i <= NF; i++) suite = suite || $i == "bookworm" }
        /^[ \t]*$/ { found() }
        END { found() }')
    [ -n "$mirror" ] || { echo "bookworm-image.sh: no bookworm source in /etc/apt" >&2; exit 1; }
    # An interrupted build leaves only a .tmp tree, never one of the final name.
    tmp=$image.tmp
    rm -rf "$cache"/*.tmp "$cache"/*.tmp.log
    if ! debootstrap --variant=minbase --include=systemd,systemd-sysv,dbus,python3,python3-apt \
        bookworm "$tmp" "$mirror" >"$tmp.log" 2>&1 ||
        ! chroot "$tmp" sh -c 'apt-get clean && apt-get install -qq --download-only --no-install-recommends snmpd snmp procps' \
            >>"$tmp.log" 2>&1; then
        cat "$tmp.log" >&2
        exit 1
    fi
    mv "$tmp" "$image"
    rm -f "$tmp.log"
fi
echo "$image"
