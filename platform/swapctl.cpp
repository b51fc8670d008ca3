// SPDX-License-Identifier: Apache-2.0
#include "platform/swapctl.h"

#include "platform/host_files.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <unistd.h>

namespace {

int swap_accounting(int cmd, void *arg) {
    if (cmd != SC_AINFO) {
        errno = EINVAL;
        return -1;
    }
    if (!arg) {
        errno = EFAULT;
        return -1;
    }
    std::string meminfo;
    if (!platform::read_host_text("/proc/meminfo", meminfo)) {
        return -1;
    }
    // A kernel built without swap support has no Swap lines: no swap.
    uint64_t total_kb = 0, free_kb = 0;
    if (platform::meminfo_kb(meminfo, "SwapTotal", total_kb) &&
        !platform::meminfo_kb(meminfo, "SwapFree", free_kb)) {
        errno = EIO;
        return -1;
    }
    if (free_kb > total_kb) {
        free_kb = total_kb;
    }
    const uint64_t pagesize = static_cast<uint64_t>(getpagesize());
    anoninfo *ai = static_cast<anoninfo *>(arg);
    ai->ani_max = static_cast<pgcnt_t>(total_kb * 1024 / pagesize);
    ai->ani_free = static_cast<pgcnt_t>(free_kb * 1024 / pagesize);
    // Linux reserves nothing ahead of use, so the swap in use stands for
    // Solaris' reserved swap; callers take max - resv as the free swap.
    ai->ani_resv = ai->ani_max - ai->ani_free;
    return 0;
}

} // namespace

namespace solaris {

int swapctl(int cmd, void *arg) {
    return platform::c_call(-1, [&] { return swap_accounting(cmd, arg); });
}

} // namespace solaris
