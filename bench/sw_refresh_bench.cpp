// SPDX-License-Identifier: Apache-2.0
// Times refresh_SwverLoad_CB on the host's package database: the listing
// through the pkginfo stand-in and the state checks of every listed package
// with a known daemon or driver, the watch lines below included. The main
// loop is blocked for this long at every rebuild. For scale, it also times
// one check pipeline of the kind a refresh used to start for every such row.
// Usage: sw_refresh_bench [runs]   (default 10)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "interface/sw_watch.h"
#include "interface/vorHoSwVer_interface.h"
#include "platform/popen_stream.h"

// Packages the filters leave out, watched as an operator would.
static const struct {
    const char *prefix;
    const char *daemon;
} kWatched[] = {{"snmpd", "snmpd"}, {"alphad", "alphad"}, {"betad", "betad"}};

template <typename F> static double best_ms(int runs, F &&work, double *mean_ms = nullptr) {
    using clock = std::chrono::steady_clock;
    double total = 0, best = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = clock::now();
        work();
        const double ms = std::chrono::duration<double, std::milli>(clock::now() - start).count();
        total += ms;
        best = i == 0 ? ms : std::min(best, ms);
    }
    if (mean_ms) {
        *mean_ms = total / runs;
    }
    return best;
}

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    for (const auto &w : kWatched) {
        std::string line = std::string("application ") + w.prefix + " process " + w.daemon;
        parse_softwareWatch(SWVER_WATCH_TOKEN, line.data());
    }
    double mean_ms = 0;
    const auto refresh = [] { refresh_SwverLoad_CB(); };
    const double min_ms = best_ms(runs, refresh, &mean_ms);
    int rows = 0, checked = 0;
    std::set<std::string> daemons;
    for (const vorHo_Swver_t *n = swVerList; n; n = n->next) {
        const char *name = n->vorSwverEntry->name;
        const char *daemon = get_exe_name(name);
        for (const auto &w : kWatched) {
            if (!daemon && std::string(name).rfind(w.prefix, 0) == 0) {
                daemon = w.daemon;
            }
        }
        ++rows;
        if (daemon) {
            ++checked;
            daemons.insert(daemon);
        }
    }
    cleanup_swver_list();
    const double pipeline_ms = best_ms(runs, [] {
        platform::PopenStream check("ps -aef | grep temhostd |grep -v grep");
        platform::CommandOutput out;
        check.read_all(out);
    });

    printf("sw refresh: %d runs, %d rows (%d with a daemon or driver to look for, %zu distinct), "
           "mean %.1f ms, min %.1f ms per refresh\n",
           runs, rows, checked, daemons.size(), mean_ms, min_ms);
    printf("one check pipeline (ps -aef | grep temhostd |grep -v grep): min %.1f ms\n",
           pipeline_ms);
    return 0;
}
