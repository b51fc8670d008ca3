// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostFs_interface.h"
#include "unit_helpers.h"

namespace {

TEST(FsFigures, WorkedExamplesAndZeroRules) {
    const struct {
        unsigned long frsize, bsize;
        uint64_t blocks, bfree;
        long total, used;
        uintmax_t percent;
        const char *what;
    } cases[] = {
        {4096, 8192, 1000000, 250000, 3906, 2930, 76, "75.0 % plus one"},
        {4096, 4096, 1000000, 0, 3906, 3906, 101, "full reads 101"},
        {4096, 4096, 200, 100, 0, 0, 0, "under 1 MB"},
        {0, 4096, 1000000, 250000, 3906, 3906, 76, "no fragment size: nothing counts as free"},
        {4096, 4096, 0, 0, 0, 0, 0, "no blocks"},
        {4096, 4096, 1ull << 40, (1ull << 40) - 256, INT32_MAX, 1, 1, "4 EiB: the size clamps"},
    };
    for (const auto &c : cases) {
        struct statvfs v {};
        v.f_frsize = c.frsize, v.f_bsize = c.bsize, v.f_blocks = c.blocks, v.f_bfree = c.bfree;
        fs_usage u{};
        fill_fs_figures(&u, v);
        EXPECT_EQ(c.total, u.fsu_totalMB) << c.what;
        EXPECT_EQ(c.used, u.fsu_usedMB) << c.what;
        EXPECT_EQ(c.percent, u.fsu_percent) << c.what;
    }
}

// The fixture mounts the pseudo types on "/", so that only their exclusion
// keeps them out, and names a mount point gone since; every rebuild
// numbers its rows from 0.
TEST(FsList, PseudoTypesAndVanishedMountsLeftOutRowsFromZero) {
    use_fixture("fs/mixed");
    for (int rebuild = 0; rebuild < 2; ++rebuild) {
        refresh_flist_CB();
        std::vector<std::string> rows;
        for (const vorHost_fs_usage_t *n = FileSysUsageList; n; n = n->next) {
            EXPECT_EQ(static_cast<int>(rows.size()), n->pFsUsage->index);
            rows.emplace_back(n->pFsUsage->vorHoFileSysDesc);
        }
        EXPECT_EQ((std::vector<std::string>{"/dev/sda1 On /", "tmpfs On /tmp"}), rows);
    }
    erase_fs_container();
    platform::set_host_root("");
}

} // namespace
