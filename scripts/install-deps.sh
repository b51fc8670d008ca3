#!/bin/sh
# Installs everything temhostd needs to build, run and be tested on Debian.
# Safe to run again: apt-get skips what is already there.
set -eu

PKGS="build-essential cmake pkg-config clang-format libsnmp-dev libsystemd-dev snmpd snmp \
snmptrapd libgtest-dev libbenchmark-dev python3 python3-pytest util-linux iproute2 procps psmisc \
bc smitools prometheus-snmp-exporter clang libclang-rt-14-dev valgrind"
# Packaging: the .deb (dpkg-dev, file for CPack) and its checks (lintian, mandoc,
# man and lexgrog from man-db, col from bsdextrautils, systemd-analyze).
PKGS="$PKGS dpkg-dev file lintian mandoc man-db bsdextrautils systemd"

if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps.sh: run as root" >&2
    exit 1
fi

missing=""
for p in $PKGS; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done

if [ -n "$missing" ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # snmpd's package starts the service where it can; our test beds run their
    # own master in private namespaces, so a host service is never relied on.
    apt-get install -y -qq --no-install-recommends $missing
fi

# The base SMIv2 modules the MIB imports (SNMPv2-SMI, -TC, -CONF) are in no
# Net-SNMP package of Debian; erlang-snmp ships them as text. Only those three
# files are unpacked, into the build tree (never the repository, and Erlang
# is not installed). Usage: install-deps.sh [DIR], default build/mibs-base.
base=${1:-"$(cd "$(dirname "$0")/.." && pwd)/build/mibs-base"}
if [ ! -s "$base/SNMPv2-SMI.txt" ] || [ ! -s "$base/SNMPv2-TC.txt" ] || [ ! -s "$base/SNMPv2-CONF.txt" ]; then
    tmp=$(mktemp -d)
    # apt-get download drops privileges to _apt where it can.
    chown _apt "$tmp" 2>/dev/null || true
    if ! (cd "$tmp" && apt-get download -qq erlang-snmp); then
        apt-get update -qq
        (cd "$tmp" && apt-get download -qq erlang-snmp)
    fi
    mkdir -p "$base"
    for m in SNMPv2-SMI SNMPv2-TC SNMPv2-CONF; do
        dpkg-deb --fsys-tarfile "$tmp"/erlang-snmp_*.deb |
            tar -x --wildcards --no-anchored -O "*/mibs/$m.mib" > "$base/$m.txt.new"
        [ -s "$base/$m.txt.new" ] || { echo "install-deps.sh: $m not found in erlang-snmp" >&2; exit 1; }
        mv "$base/$m.txt.new" "$base/$m.txt"
    done
    rm -rf "$tmp"
fi
echo "install-deps.sh: all build and test dependencies present (base MIB modules in $base)"
