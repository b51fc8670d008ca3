#!/bin/sh
# Inside a private host with the agents running (see run-cpu-idle.sh).
# utime+stime+cutime+cstime (clock ticks) of one process and of the
# children it has waited for, from /proc/PID/stat.
set -eu
seconds=$1
daemon=$(cat /var/run/temhostd.pid)
master=$(cat /run/snmpd.pid)
hz=$(getconf CLK_TCK)

cpu_ticks() {
    # Fields after the command name, which is in parentheses and may hold blanks.
    sed -e 's/^.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 + $14 + $15 }'
}

sleep 5 # let start-up work settle
d0=$(cpu_ticks "$daemon")
m0=$(cpu_ticks "$master")
start=$(date +%s.%N)
sleep "$seconds"
d1=$(cpu_ticks "$daemon")
m1=$(cpu_ticks "$master")
end=$(date +%s.%N)

wall=$(echo "$end - $start" | bc -l)
pct() { echo "($1) * 100 / ($hz * $wall)" | bc -l; }
printf "idle window:             %.1f s, polling off, %d processors, %s ticks/s\n" \
    "$wall" "$(grep -c '^cpu[0-9]' /proc/stat)" "$hz"
printf "temhostd (+ commands):   %4d ticks = %.4f %% of one core   (goal: at most 0.05 %%)\n" \
    "$((d1 - d0))" "$(pct "$d1 - $d0")"
printf "snmpd master (+ children): %2d ticks = %.4f %% of one core\n" \
    "$((m1 - m0))" "$(pct "$m1 - $m0")"
printf "resolution:              1 tick = %.4f %% of one core over this window\n" "$(pct 1)"
