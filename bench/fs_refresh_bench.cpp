// SPDX-License-Identifier: Apache-2.0
// Times refresh_flist_CB on the live mount table: erase, read the mount
// table, statvfs every kept mount and relink the list.
// Usage: fs_refresh_bench [runs]   (default 100)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "interface/KyOrblHostFs_interface.h"

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 100;
    using clock = std::chrono::steady_clock;

    double total_us = 0, min_us = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = clock::now();
        refresh_flist_CB();
        const double us = std::chrono::duration<double, std::micro>(clock::now() - start).count();
        total_us += us;
        min_us = i == 0 ? us : std::min(min_us, us);
    }
    int rows = 0;
    for (const vorHost_fs_usage_t *n = FileSysUsageList; n; n = n->next) {
        ++rows;
    }
    erase_fs_container();

    printf("fs refresh: %d runs, %d rows, mean %.1f us, min %.1f us per refresh\n", runs, rows,
           total_us / runs, min_us);
    return 0;
}
