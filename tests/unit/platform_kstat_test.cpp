// SPDX-License-Identifier: Apache-2.0
// Kernel statistics read from a scratch host tree.
#include <unistd.h>

#include <gtest/gtest.h>

#include "interface/KyOrblKstat_routines.h"
#include "unit_helpers.h"

namespace {

// Free memory is what the kernel counts as available for new work, MemFree
// only on kernels without that figure; a missing key reads all ones.
TEST(PlatformKstat, FreeMemoryAndMissingKeys) {
    ScratchDir root(true);
    root.write("proc/stat", "cpu0 1 2 3 4\n");
    const std::pair<const char *, uint64_t> cases[] = {
        {"MemFree: 500000 kB\nMemAvailable: 4000000 kB\n", 4000000},
        {"MemFree: 250000 kB\n", 250000}};
    for (const auto &[meminfo, kb] : cases) {
        root.write("proc/meminfo", meminfo);
        EXPECT_EQ(kb * 1024 / getpagesize(), getKstatVal64("unix", 0, "system_pages", "freemem"));
    }
    EXPECT_EQ(UINT64_MAX, getKstatVal64("unix", 0, "system_pages", "no_such_key"));
    EXPECT_EQ(UINT32_MAX, getKstatVal32("unix", 0, "system_pages", "no_such_key"));
}

} // namespace
