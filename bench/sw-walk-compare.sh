#!/bin/sh
# Inside a private host with the agents running (see run-sw-walk.sh).
set -eu
build=$1
ours=1.3.6.1.4.1.32473.11.2.7.2
hr_sw=1.3.6.1.2.1.25.6.3

# One walk: prints "<varbinds> <seconds>".
walk_once() {
    start=$(date +%s.%N)
    n=$(snmpwalk -v2c -c meadow -On -t 30 127.0.0.1 "$1" | grep -c "^\.")
    end=$(date +%s.%N)
    echo "$n $(echo "$end - $start" | bc -l)"
}
# Best of three walks.
walk_time() {
    best_n= best=
    for run in 1 2 3; do
        set -- $(walk_once "$1") "$1"
        if [ -z "$best" ] || [ "$(echo "$2 < $best" | bc -l)" = 1 ]; then best_n=$1 best=$2; fi
        set -- "$3"
    done
    echo "$best_n $best"
}

# Walks within 15 s of the last rebuild read the rows in place; the first
# walk after that starts with a rebuild (polling is off here).
sleep 16
set -- $(walk_once $ours)
first_n=$1 first_t=$2
set -- $(walk_time $ours)
our_n=$1 our_t=$2
set -- $(walk_time $hr_sw)
hr_n=$1 hr_t=$2
our_per=$(echo "$our_t * 1000000 / $our_n" | bc -l)
hr_per=$(echo "$hr_t * 1000000 / $hr_n" | bc -l)
printf "vorHoSwVerTable walk, with a rebuild: %5d varbinds in %.3f s\n" "$first_n" "$first_t"
printf "vorHoSwVerTable walk:                 %5d varbinds in %.3f s = %7.1f us/varbind\n" "$our_n" "$our_t" "$our_per"
printf "hrSWInstalledTable walk (master):     %5d varbinds in %.3f s = %7.1f us/varbind\n" "$hr_n" "$hr_t" "$hr_per"
printf "ratio (ours / master):                %.2f\n" "$(echo "$our_per / $hr_per" | bc -l)"
"$build/bin/sw_refresh_bench" 10
