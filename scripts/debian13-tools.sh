#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Prints the path of a Debian 13 (trixie) tree holding the tools the tests
# run in their Debian 13 versions: ansible-core (the controller of the role
# test on Debian 13; its Python 3.13 runs only inside the tree), Prometheus
# and snmp_exporter (Go programs that run on this host from the tree), and
# Zabbix 7.0's server schema and frontend with PostgreSQL and PHP (the
# template's import). Built once per machine by scripts/debian-image.sh.
#
# Usage: scripts/debian13-tools.sh   (as root)
set -eu
exec "$(dirname "$0")/debian-image.sh" trixie ansible-core prometheus prometheus-snmp-exporter \
    zabbix-server-pgsql zabbix-frontend-php php-pgsql php-cli postgresql
