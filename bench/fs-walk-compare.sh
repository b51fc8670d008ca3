#!/bin/sh
# Inside a private host with the agents running (see run-fs-walk.sh).
set -eu
build=$1
ours=1.3.6.1.4.1.32473.11.2.4.1
hr_storage=1.3.6.1.2.1.25.2.3

# Best of three walks: prints "<varbinds> <seconds>".
walk_time() {
    best=
    for run in 1 2 3; do
        start=$(date +%s.%N)
        n=$(snmpwalk -v2c -c meadow -On -t 10 127.0.0.1 "$1" | grep -c "^\.")
        end=$(date +%s.%N)
        t=$(echo "$end - $start" | bc -l)
        if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; then best=$t; fi
    done
    echo "$n $best"
}

set -- $(walk_time $ours)
our_n=$1 our_t=$2
set -- $(walk_time $hr_storage)
hr_n=$1 hr_t=$2
our_per=$(echo "$our_t * 1000000 / $our_n" | bc -l)
hr_per=$(echo "$hr_t * 1000000 / $hr_n" | bc -l)
printf "mounted file systems:          %d\n" "$(grep -c . /proc/self/mounts)"
printf "vorHoFileSysTable walk:        %5d varbinds in %.3f s = %7.1f us/varbind\n" "$our_n" "$our_t" "$our_per"
printf "hrStorageTable walk (master):  %5d varbinds in %.3f s = %7.1f us/varbind\n" "$hr_n" "$hr_t" "$hr_per"
printf "ratio (ours / master):         %.2f  (goal: at most 2.00)\n" "$(echo "$our_per / $hr_per" | bc -l)"
"$build/bin/fs_refresh_bench" 20
