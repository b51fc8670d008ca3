// SPDX-License-Identifier: Apache-2.0
// Readers for the Linux host files behind the Solaris stand-ins. Every path
// goes through host_path(), so tests can point them at a fixture tree.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "platform/guard.h"

namespace platform {

// Reads the whole host file at path (host_path applied) into out, at most
// limit bytes. When the file is longer, the partial last line is dropped so
// no caller parses half a line. Returns false with errno set on failure.
bool read_host_text(const char *path, std::string &out, size_t limit = 16u << 20);

// Binary variant: at most limit bytes, nothing dropped.
bool read_host_bytes(const char *path, std::string &out, size_t limit);

// fopen(path, "r") (no host_path), except that a signal never cuts a read
// short: stdio gives up on a read that returns EINTR, and a line read with
// fgets would end there as if the file did.
FILE *open_for_reading(const char *path);

// Blank-separated fields of one line.
std::vector<std::string_view> split_fields(std::string_view line);

// Whole-token unsigned parse in the given base; false for anything else.
bool parse_u64(std::string_view token, uint64_t &value, int base = 10);

// The kB figure of a /proc/meminfo key such as "MemAvailable".
bool meminfo_kb(const std::string &meminfo, std::string_view key, uint64_t &kb);

// Processor numbers of a kernel cpu list such as "0-3,8\n", ascending.
bool parse_cpu_list(std::string_view text, std::vector<int> &cpus);

// One "cpuN" line of /proc/stat, in USER_HZ ticks.
struct CpuTicks {
    int cpu = -1;
    uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0, steal = 0;
};

// The per-processor lines of /proc/stat in file order (the kernel lists the
// online processors). Malformed lines are left out.
std::vector<CpuTicks> parse_stat_cpus(const std::string &stat);

// The boot time ("btime") of /proc/stat.
bool parse_stat_btime(const std::string &stat, time_t &btime);

// Boot time of the host, or the current time when it cannot be read.
time_t host_boot_time();

} // namespace platform
