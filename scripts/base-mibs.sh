#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Unpacks the SMIv2 base modules TEMHOSTD-MIB imports (SNMPv2-SMI, -TC,
# -CONF) into DIR as SNMPv2-*.txt, unless they are there already. No
# Net-SNMP package of Debian main has them; erlang-snmp (main) ships them as
# text, so only those three files are taken from its .deb (Erlang is not
# installed). Needs no root.
#
# Usage: scripts/base-mibs.sh DIR
set -eu
base=$1
[ -s "$base/SNMPv2-SMI.txt" ] && [ -s "$base/SNMPv2-TC.txt" ] && [ -s "$base/SNMPv2-CONF.txt" ] && exit 0
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# apt-get download drops privileges to _apt where it can.
chown _apt "$tmp" 2>/dev/null || true
if ! (cd "$tmp" && apt-get download -qq erlang-snmp); then
    apt-get update -qq
    (cd "$tmp" && apt-get download -qq erlang-snmp)
fi
mkdir -p "$base"
for m in SNMPv2-SMI SNMPv2-TC SNMPv2-CONF; do
    dpkg-deb --fsys-tarfile "$tmp"/erlang-snmp_*.deb |
        tar -x --wildcards --no-anchored -O "*/mibs/$m.mib" >"$base/$m.txt.new"
    [ -s "$base/$m.txt.new" ] || { echo "base-mibs.sh: $m not found in erlang-snmp" >&2; exit 1; }
    mv "$base/$m.txt.new" "$base/$m.txt"
done
