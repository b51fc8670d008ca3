// SPDX-License-Identifier: Apache-2.0
// Times how long one refresh_cpuLoad_CB blocks the main loop: on this host
// (the psrinfo stand-in, the live /proc/stat) and on a scratch host tree of
// many processors, whose psrinfo is a script printing a ready listing.
// Usage: cpu_refresh_bench [runs] [processors]   (defaults 50 and 256)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "interface/KyOrblHostCpu_interface.h"
#include "platform/host_paths.h"

namespace fs = std::filesystem;

// Minimum, median and maximum of runs samples, after one priming sample.
// The psrinfo child dominates, so a busy machine shows in the median.
static bool time_refresh(const char *what, int runs) {
    if (!initCpuUtilTable() || !refresh_cpuLoad_CB()) {
        fprintf(stderr, "%s: the sampler could not start\n", what);
        return false;
    }
    using clock = std::chrono::steady_clock;
    std::vector<double> ms;
    for (int i = 0; i < runs; ++i) {
        const auto start = clock::now();
        const int ok = refresh_cpuLoad_CB();
        ms.push_back(std::chrono::duration<double, std::milli>(clock::now() - start).count());
        if (!ok) {
            fprintf(stderr, "%s: a sample failed\n", what);
            return false;
        }
    }
    std::sort(ms.begin(), ms.end());
    int busy_rows = 0;
    for (const vorHostOs_Cpu_Util_t *n = CpuUtilList; n; n = n->next) {
        busy_rows += n->vorCpu.cpu_1min >= 0;
    }
    printf("%-34s %3d processors (%d with a load), %d runs: min %.2f, median %.2f, max %.2f ms "
           "(goal: at most 5 ms)\n",
           what, g_numCpu, busy_rows, runs, ms.front(), ms[ms.size() / 2], ms.back());
    cleanup_cpustat_chain();
    return true;
}

static void write(const fs::path &p, const std::string &text) {
    std::ofstream(p) << text;
}

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 50;
    const int ncpu = argc > 2 ? std::max(1, atoi(argv[2])) : 256;
    if (!time_refresh("refresh_cpuLoad_CB, this host:", runs)) {
        return 1;
    }

    char dir[] = "/tmp/cpu-bench-XXXXXX";
    if (!mkdtemp(dir)) {
        perror("mkdtemp");
        return 1;
    }
    const fs::path root = dir;
    fs::create_directories(root / "proc");
    fs::create_directories(root / "sys/devices/system/cpu");
    fs::create_directories(root / "cmd");
    std::string stat = "cpu  0 0 0 0 0 0 0 0 0 0\n", listing;
    for (int i = 0; i < ncpu; ++i) {
        // Counters of a host up for weeks: ten-digit figures, like the kernel's.
        stat += "cpu" + std::to_string(i) + " 1234567" + std::to_string(100 + i) +
                " 12345 2345678901 3456789012 45678 0 123456 0 0 0\n";
        listing += std::to_string(i) + "\ton-line   since 11/23/2026 08:00:00\n";
    }
    write(root / "proc/stat", stat + "intr 1 2 3\nctxt 255443\nbtime 1700000000\n");
    write(root / "sys/devices/system/cpu/present", "0-" + std::to_string(ncpu - 1) + "\n");
    write(root / "listing", listing);
    write(root / "cmd/psrinfo", "#!/bin/sh\nexec cat '" + (root / "listing").string() + "'\n");
    fs::permissions(root / "cmd/psrinfo", fs::perms::owner_all);
    platform::set_host_root(root.string());
    platform::set_command_dir((root / "cmd").string());
    const bool ok = time_refresh("refresh_cpuLoad_CB, fixture tree:", runs);
    fs::remove_all(root);
    return ok ? 0 : 1;
}
