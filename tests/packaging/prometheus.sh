#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# promtool accepts the rules and the alerts, their tests pass
# (prometheus-test.yml), and the recorded series pass its metric lint, bar
# its one complaint about level:metric:operations names, their colons. The
# exporter accepts the module file of its version (snmp-0.21.yml for 0.21,
# snmp.yml for later ones), which is the one made from snmp.yml.
# With ROOT, the promtool and exporter of that Debian tree (Debian 13's of
# scripts/debian13-tools.sh) are checked instead of this host's.
#
# Usage: tests/packaging/prometheus.sh [ROOT]
set -eu
cd "$(dirname "$0")"
root=${1:-}
if [ -n "$root" ]; then
    promtool=$root/usr/bin/promtool exporter=$root/usr/bin/prometheus-snmp-exporter
else
    promtool=promtool exporter=prometheus-snmp-exporter
fi
rules=../../contrib/prometheus
"$promtool" check rules $rules/temhostd-rules.yml $rules/temhostd-alerts.yml
"$promtool" test rules prometheus-test.yml
# Each recorded name as an exposed gauge; any complaint left is printed and fails.
sed -n 's/^ *- record: *//p' $rules/temhostd-rules.yml |
    awk '{ print "# HELP " $1 " x\n# TYPE " $1 " gauge\n" $1 " 1" }' | "$promtool" check metrics 2>&1 |
    grep -v ":.* metric names should not contain ':'$" && exit 1

../../scripts/exporter-module-0.21.py --check
module=$rules/snmp.yml
if "$exporter" --version 2>&1 | grep -q 'version 0\.21\.'; then
    module=$rules/snmp-0.21.yml
fi
out=$("$exporter" --config.file=$module --dry-run 2>&1) || { echo "$out" >&2; exit 1; }
echo "prometheus: ok ($("$promtool" --version 2>&1 | head -1); $(basename $module))"
