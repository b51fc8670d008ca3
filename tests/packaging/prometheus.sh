#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The Prometheus rules: promtool accepts them, their unit tests pass
# (prometheus-test.yml), and the recorded series pass promtool's metric lint,
# bar its one complaint about level:metric:operations names, their colons.
#
# Usage: tests/packaging/prometheus.sh
set -eu
here=$(cd "$(dirname "$0")" && pwd)
rules=$here/../../contrib/prometheus
promtool check rules "$rules"/temhostd-rules.yml "$rules"/temhostd-alerts.yml
(cd "$here" && promtool test rules prometheus-test.yml)
out=$(sed -n 's/^ *- record: *//p' "$rules"/temhostd-rules.yml |
    while read -r n; do printf '# HELP %s x\n# TYPE %s gauge\n%s 1\n' "$n" "$n" "$n"; done |
    promtool check metrics 2>&1 |
    grep -v "^[a-z_]*:[a-z0-9_]*:[a-z0-9_]* metric names should not contain ':'$") || true
[ -z "$out" ] || { echo "promtool check metrics: $out"; exit 1; }
echo "prometheus: ok"
