// SPDX-License-Identifier: Apache-2.0
// The check plugin's judgement, apart from the network: Nagios ranges, the
// verdict of each mode on the table rows read, and the one status line with
// its performance data, as the Monitoring Plugins guidelines want them.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace check {

enum State { OK = 0, WARNING = 1, CRITICAL = 2, UNKNOWN = 3 };

const char *state_name(State s);

// A Nagios range ("10", "10:", "~:10", "10:20", "@10:20"): alert() is true
// when the value lies outside it, or inside it for the "@" form.
struct Range {
    double low = 0, high = 0;
    bool low_infinite = false, high_infinite = false, inside = false;
    std::string text; // as given, for the performance data

    bool alert(double value) const;
    // nullopt and *error set for text that is not a range.
    static std::optional<Range> parse(const std::string &text, std::string *error);
};

struct Thresholds {
    std::optional<Range> warn, crit;
    State judge(double value) const;
};

struct Result {
    State state = UNKNOWN;
    std::string text; // after "TEMHOSTD MODE STATE - "
    std::string perf; // after " | ", may be empty
    // "TEMHOSTD FS OK - text | perf"
    std::string line(const std::string &mode) const;
};

// Rows as the tables give them; a column the walk missed keeps its default.
struct FsRow {
    std::string desc; // "DEVICE On MOUNT-POINT"
    long total_mb = 0, used_mb = 0, percent = 0;
};
struct CpuRow {
    long index = 0, avg5 = -1; // -1: the 5-minute average is not known yet
};
struct SwRow {
    std::string name;
    long status = 0; // 1 not checked, 2 running, 3 not running
};

// The mount point from a description; the device is one word before " On ".
std::string mount_point(const std::string &desc);
// An empty list of globs matches everything.
bool matches_any(const std::vector<std::string> &globs, const std::string &name);
// A performance data label, quoted, its quotes doubled.
std::string perf_label(const std::string &name);

Result judge_fs(const std::vector<FsRow> &rows, const std::vector<std::string> &globs,
                const Thresholds &t);
Result judge_cpu(const std::vector<CpuRow> &rows, const Thresholds &t);
Result judge_software(const std::vector<SwRow> &rows, const std::vector<std::string> &globs);
// The status array's octets; octet 1 is the overall condition.
Result judge_status(const std::string &array);
// Megabytes; a paging size of 0 (no swap) is left out.
Result judge_memory(long phys_size, long phys_free, long page_size, long page_free,
                    const Thresholds &t);

} // namespace check
