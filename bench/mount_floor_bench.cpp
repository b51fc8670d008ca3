// SPDX-License-Identifier: Apache-2.0
// The kernel's share of a file system refresh, with none of ours: the
// time to read /proc/self/mounts whole, and the time of one statvfs per
// mount point listed. A refresh cannot be faster than the two together.
// Prints "mounts read_ms statvfs_ms" (best of runs).
//
// Usage: mount_floor_bench [runs]   (default 10)
#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

static double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The mount points (second field) of the table; octal escapes are left as
// they are, which only makes those few statvfs calls fail as fast.
static std::vector<std::string> mount_points(const std::string &table) {
    std::vector<std::string> points;
    std::istringstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string device, point;
        if (fields >> device >> point) {
            points.push_back(point);
        }
    }
    return points;
}

int main(int argc, char **argv) {
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    double best_read = 0, best_stat = 0;
    size_t count = 0;
    for (int i = 0; i < runs; ++i) {
        auto start = Clock::now();
        std::ifstream in("/proc/self/mounts");
        std::string table((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const double read_ms = ms_since(start);
        const std::vector<std::string> points = mount_points(table);
        start = Clock::now();
        struct statvfs sv;
        for (const std::string &p : points) {
            (void)statvfs(p.c_str(), &sv);
        }
        const double stat_ms = ms_since(start);
        best_read = i == 0 ? read_ms : std::min(best_read, read_ms);
        best_stat = i == 0 ? stat_ms : std::min(best_stat, stat_ms);
        count = points.size();
    }
    printf("%zu %.3f %.3f\n", count, best_read, best_stat);
    return 0;
}
