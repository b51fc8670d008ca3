// Times refresh_SwverLoad_CB on the host's package database: the listing
// through the pkginfo stand-in and one process or module check per listed
// package with a known daemon or driver. The main loop is blocked for this
// long at every rebuild.
// Usage: sw_refresh_bench [runs]   (default 10)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "interface/vorHoSwVer_interface.h"

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    using clock = std::chrono::steady_clock;

    double total_ms = 0, min_ms = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = clock::now();
        refresh_SwverLoad_CB();
        const double ms = std::chrono::duration<double, std::milli>(clock::now() - start).count();
        total_ms += ms;
        min_ms = i == 0 ? ms : std::min(min_ms, ms);
    }
    int rows = 0, checked = 0;
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
        ++rows;
        checked += get_exe_name(n->vorSwverEntry->name) != nullptr;
    }
    cleanup_swver_list();

    printf("sw refresh: %d runs, %d rows (%d with a daemon or driver to look for), "
           "mean %.1f ms, min %.1f ms per refresh\n",
           runs, rows, checked, total_ms / runs, min_ms);
    return 0;
}
