# SPDX-License-Identifier: Apache-2.0
# Sourced by the scripts that start agents: polling helpers.

# Polls until "$@" succeeds, for at most 20 seconds.
wait_until() {
    i=0
    until "$@" >/dev/null 2>&1; do
        i=$((i + 1))
        [ $i -le 100 ] || return 1
        sleep 0.2
    done
}

# Every object given is registered with the master ("No Such Object" means
# not yet; a table without rows answers "No Such Instance").
answers() {
    out=$(snmpget -v2c -c meadow -t 1 -r 0 127.0.0.1 "$@" 2>&1) || return 1
    ! printf '%s\n' "$out" | grep -q "No Such Object"
}

