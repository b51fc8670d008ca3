#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Prints the path of a minimal Debian tree of release SUITE (bookworm,
# trixie) that boots with systemd as pid 1 (systemd-nspawn --boot), after
# building it from Debian's archive (the mirror of this host's apt sources)
# when this machine has none yet: about a minute. It holds what a fresh host
# that Ansible manages has (python3, python3-apt) and nothing of SNMP;
# snmpd, the Net-SNMP tools and procps wait, with their dependencies, in its
# apt cache, so that packages needing them install without any network.
# PACKAGEs, if named, are installed in it (a tree of tools, e.g. a Debian 13
# ansible-core to run from it), with no service started.
#
# The tree lives under /var/cache/temhostd-test, outside any clone, named
# after the release, this script's contents and the packages, and must not
# be changed: boot throwaway copies of it (systemd-nspawn --volatile=overlay)
# or run its programs read-only.
#
# Usage: scripts/debian-image.sh SUITE [PACKAGE...]   (as root)
set -eu
[ $# -ge 1 ] || { echo "usage: debian-image.sh SUITE [PACKAGE...]" >&2; exit 2; }
suite=$1
shift
cache=/var/cache/temhostd-test
key=$({ cat "$0"; echo "$suite"; printf '%s\n' "$@" | sort -u; } | sha256sum | cut -c1-12)
image=$cache/$suite-$key

mkdir -p $cache
exec 9>"$image.lock"
flock 9 # one build of a tree at a time; the others wait for it and use it
if [ ! -d "$image" ]; then
    # The archive this host installs its own release from (one-line or
    # deb822 sources) serves every release.
    own=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mirror=$(for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list \
        /etc/apt/sources.list.d/*.sources; do [ ! -f "$f" ] || { cat "$f"; echo; }; done | awk -v own="$own" '
        function found() { if (uri != "" && suite) { print uri; uri = ""; exit } uri = ""; suite = 0 }
        /^deb / { sub(/ \[[^]]*\]/, ""); if ($3 == own) { print $2; exit } }
        /^URIs:/ { uri = $2 }
        /^Suites:/ { for (i = 2; i <= NF; i++) suite = suite || $i == own }
        /^[ \t]*$/ { found() }
        END { found() }')
    [ -n "$mirror" ] || { echo "debian-image.sh: no source for $own in /etc/apt" >&2; exit 1; }
    # An interrupted build leaves only a .tmp tree, never one of the final name.
    tmp=$image.tmp
    rm -rf "$tmp" "$tmp.log"
    build() {
        debootstrap --variant=minbase --include=systemd,systemd-sysv,dbus,python3,python3-apt \
            "$suite" "$tmp" "$mirror" || return 1
        if [ $# -gt 0 ]; then
            # No service may start: the tree is not running.
            printf '#!/bin/sh\nexit 101\n' >"$tmp/usr/sbin/policy-rc.d"
            chmod 755 "$tmp/usr/sbin/policy-rc.d"
            unshare -m sh -c 'mount -t proc proc "$1/proc" && shift &&
                DEBIAN_FRONTEND=noninteractive chroot "$0" apt-get install -y -q --no-install-recommends "$@"' \
                "$tmp" "$tmp" "$@" || return 1
            rm -f "$tmp/usr/sbin/policy-rc.d"
        fi
        chroot "$tmp" sh -c 'apt-get clean && apt-get install -qq --download-only --no-install-recommends snmpd snmp procps'
    }
    if ! build "$@" >"$tmp.log" 2>&1; then
        cat "$tmp.log" >&2
        exit 1
    fi
    mv "$tmp" "$image"
    rm -f "$tmp.log"
fi
echo "$image"
