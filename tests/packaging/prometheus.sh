#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# promtool accepts the rules and the alerts, their tests pass
# (prometheus-test.yml), and the recorded series pass its metric lint, bar
# its one complaint about level:metric:operations names, their colons.
#
# Usage: tests/packaging/prometheus.sh
set -eu
cd "$(dirname "$0")"
rules=../../contrib/prometheus
promtool check rules $rules/temhostd-rules.yml $rules/temhostd-alerts.yml
promtool test rules prometheus-test.yml
# Each recorded name as an exposed gauge; any complaint left is printed and fails.
sed -n 's/^ *- record: *//p' $rules/temhostd-rules.yml |
    awk '{ print "# HELP " $1 " x\n# TYPE " $1 " gauge\n" $1 " 1" }' | promtool check metrics 2>&1 |
    grep -v ":.* metric names should not contain ':'$" && exit 1
echo "prometheus: ok"
