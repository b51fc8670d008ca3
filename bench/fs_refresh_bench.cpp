// SPDX-License-Identifier: Apache-2.0
// Times refresh_flist_CB on the live mount table: erase, read the mount
// table, statvfs every kept mount and relink the list; wall and CPU time.
// Each LINE is a directive of temhostd.conf applied first
// ("fsExcludePath /var/lib/docker/*").
// Usage: fs_refresh_bench [runs [LINE...]]   (default 100)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "interface/KyOrblHostFs_interface.h"
#include "interface/fs_exclude.h"

static double cpu_us() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
}

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 100;
    for (int i = 2; i < argc; ++i) {
        std::string line = argv[i];
        const size_t blank = line.find(' ');
        std::string token = line.substr(0, blank), rest = line.substr(blank + 1);
        if (token == FS_EXCLUDE_TYPE_TOKEN) {
            parse_fsExcludeType(token.c_str(), rest.data());
        } else if (token == FS_EXCLUDE_PATH_TOKEN && blank != std::string::npos) {
            parse_fsExcludePath(token.c_str(), rest.data());
        } else {
            fprintf(stderr, "fs_refresh_bench: not a directive: %s\n", argv[i]);
            return 2;
        }
    }
    using clock = std::chrono::steady_clock;

    double total_us = 0, min_us = 0;
    const double cpu_start = cpu_us();
    for (int i = 0; i < runs; ++i) {
        const auto start = clock::now();
        refresh_flist_CB();
        const double us = std::chrono::duration<double, std::micro>(clock::now() - start).count();
        total_us += us;
        min_us = i == 0 ? us : std::min(min_us, us);
    }
    const double cpu = (cpu_us() - cpu_start) / runs;
    int rows = 0;
    for (const vorHost_fs_usage_t *n = FileSysUsageList; n; n = n->next) {
        ++rows;
    }
    erase_fs_container();

    printf("fs refresh: %d runs, %d rows, mean %.1f us, min %.1f us, cpu %.1f us per refresh\n",
           runs, rows, total_us / runs, min_us, cpu);
    return 0;
}
