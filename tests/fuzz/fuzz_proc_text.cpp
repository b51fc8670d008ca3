// SPDX-License-Identifier: Apache-2.0
// The /proc text parsers: /proc/stat's processor and boot-time lines,
// /proc/meminfo's kB figures (the memory and swap figures), and the
// kernel's processor lists.
#include <string>
#include <vector>

#include "platform/host_files.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    for (const platform::CpuTicks &t : platform::parse_stat_cpus(text)) {
        if (t.cpu < 0) {
            __builtin_trap(); // a malformed line must be left out, not half-read
        }
    }
    time_t btime;
    platform::parse_stat_btime(text, btime);
    uint64_t kb;
    for (const char *key : {"MemTotal", "MemAvailable", "MemFree", "SwapTotal", "SwapFree"}) {
        platform::meminfo_kb(text, key, kb);
    }
    std::vector<int> cpus;
    if (platform::parse_cpu_list(text, cpus)) {
        for (size_t i = 1; i < cpus.size(); ++i) {
            if (cpus[i] <= cpus[i - 1]) {
                __builtin_trap(); // promised ascending
            }
        }
    }
    return 0;
}
