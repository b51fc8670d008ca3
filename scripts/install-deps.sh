#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs everything temhostd needs to build, run and be tested on Debian
# 12 (bookworm) or 13 (trixie): every name below is in both releases (the
# default compiler's sanitizer runtimes through libclang-rt-dev, which
# follows clang: 14 on 12, 19 on 13). Safe to run again: apt-get skips what
# is already there.
set -eu

PKGS="build-essential cmake pkg-config clang-format libsnmp-dev libsystemd-dev snmpd snmp \
snmptrapd libgtest-dev libbenchmark-dev python3 python3-pytest util-linux iproute2 procps psmisc \
bc smitools prometheus-snmp-exporter clang libclang-rt-dev valgrind"
# Packaging: the .deb (dpkg-dev, file for CPack) and its checks (lintian, mandoc,
# man and lexgrog from man-db, col from bsdextrautils, systemd-analyze).
PKGS="$PKGS dpkg-dev file lintian mandoc man-db bsdextrautils systemd"
# promtool (in Debian's prometheus package) for the Prometheus rules' tests;
# the fleet bed's Prometheus, its console pages' JavaScript (the package's
# libjs-* dependencies) and the headless browser that renders them.
PKGS="$PKGS prometheus chromium fonts-dejavu-core python3-yaml"
# Icinga 2, which runs the check plugin in its end-to-end test.
PKGS="$PKGS icinga2-bin icinga2-common"
# The Ansible role's checks and its test in a systemd-nspawn container.
PKGS="$PKGS ansible-core ansible-lint yamllint debootstrap systemd-container"
# The Zabbix template's test: the release's Zabbix server and frontend
# (6.0 on Debian 12, 7.0 on 13), whose API PHP's own web server serves, on a
# private PostgreSQL cluster. PHP's packages are named with the release's
# version: the unversioned php-cgi leaves apt to pick Apache for the frontend.
case $(. /etc/os-release && echo "${VERSION_ID:-}") in
12) php=php8.2 ;;
13) php=php8.4 ;;
*) php=php$(apt-cache depends php-cgi 2>/dev/null | sed -n 's/.*Depends: php\([0-9.]*\)-cgi$/\1/p' | head -n1) ;;
esac
PKGS="$PKGS zabbix-server-pgsql zabbix-frontend-php $php-cgi $php-cli $php-pgsql postgresql"

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

# The base SMIv2 modules the MIB imports, into the build tree (never the
# repository). Usage: install-deps.sh [DIR], default build/mibs-base.
base=${1:-"$(cd "$(dirname "$0")/.." && pwd)/build/mibs-base"}
sh "$(dirname "$0")/base-mibs.sh" "$base"
echo "install-deps.sh: all build and test dependencies present (base MIB modules in $base)"
