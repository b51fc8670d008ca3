// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "interface/KyOrblHostFs_interface.h"
#include "unit_helpers.h"

namespace {

fs_usage figures(unsigned long frsize, unsigned long bsize, uint64_t blocks, uint64_t bfree,
                 uint64_t files = 0, uint64_t ffree = 0) {
    struct statvfs v {};
    v.f_frsize = frsize, v.f_bsize = bsize, v.f_blocks = blocks, v.f_bfree = bfree;
    v.f_files = files, v.f_ffree = ffree;
    fs_usage u{};
    fill_fs_figures(&u, v);
    return u;
}

TEST(FsFigures, WorkedExamplesAndZeroRules) {
    struct {
        unsigned long frsize, bsize;
        uint64_t blocks, bfree;
        long total, used;
        uintmax_t percent;
        const char *what;
    } cases[] = {
        {4096, 8192, 1000000, 250000, 3906, 2930, 76, "75.0 % plus one"},
        {4096, 4096, 1000000, 0, 3906, 3906, 101, "full reads 101"},
        {1 << 20, 0, 1000, 491, 1000, 509, 51, "50.9 % reads 51"},
        {4096, 4096, 200, 100, 0, 0, 0, "under 1 MB"},
        {4096, 4096, 868, 850, 3, 0, 0, "size and free both truncate to 3 MB"},
        {0, 4096, 1000000, 250000, 3906, 3906, 76, "no fragment size: nothing counts as free"},
        {4096, 4096, 0, 0, 0, 0, 0, "no blocks"},
        // 4 EiB with 1 MB in use: the size clamps, the use stays exact.
        {4096, 4096, 1ull << 40, (1ull << 40) - 256, INT32_MAX, 1, 1, "clamped size"},
    };
    for (const auto &c : cases) {
        const fs_usage u = figures(c.frsize, c.bsize, c.blocks, c.bfree);
        EXPECT_EQ(c.total, u.fsu_totalMB) << c.what;
        EXPECT_EQ(c.used, u.fsu_usedMB) << c.what;
        EXPECT_EQ(c.percent, u.fsu_percent) << c.what;
    }
}

TEST(FsFigures, FileCountsWidenOnlyTheUnknownMarker) {
    fs_usage u = figures(4096, 4096, 1, 1, 0xFFFFFFFFull, 0xFFFFFFFEull);
    EXPECT_EQ(UINTMAX_MAX, u.fsu_files);
    EXPECT_EQ(0xFFFFFFFEu, u.fsu_ffree);
    EXPECT_EQ(-1, fs_served_files(&u));
    u = figures(4096, 4096, 1, 1, (1ull << 33) + 5, 7);
    EXPECT_EQ((1ull << 33) + 5, u.fsu_files);
    EXPECT_EQ(-2, fs_served_files_used(&u)) << "32-bit wrap-around";
}

// Against the figures as first defined for 32-bit counts, in doubles.
TEST(FsFigures, Match32BitDoubleArithmeticForEvery32BitInput) {
    std::mt19937_64 rng(42);
    const uint32_t sizes[] = {0, 512, 4096, 65536, 1u << 20};
    for (int i = 0; i < 200000; ++i) {
        const uint32_t frsize = sizes[rng() % 5], bsize = sizes[rng() % 5];
        const uint32_t blocks = static_cast<uint32_t>(rng()) >> (rng() % 32);
        // Mostly sane, sometimes more free than total blocks.
        const uint32_t bfree = static_cast<uint32_t>(rng() % 8 ? rng() % (blocks + 1ull) : rng());
        const double total_d = double(frsize ? frsize : bsize) * blocks / 1048576.0;
        const double free_d = double(frsize) * bfree / 1048576.0;
        if (total_d > INT32_MAX || free_d > INT32_MAX)
            continue; // beyond a 32-bit long: undefined there
        const long total = long(total_d), used = blocks == 0 ? 0 : total - long(free_d);
        const uintmax_t pct = total == 0 || used == 0
                                  ? 0
                                  : uintmax_t(uint32_t(blocks - bfree) * 100.0 / blocks + 1.0);
        const fs_usage u = figures(frsize, bsize, blocks, bfree);
        ASSERT_TRUE(total == u.fsu_totalMB && used == u.fsu_usedMB && pct == u.fsu_percent)
            << frsize << "/" << bsize << " " << blocks << " " << bfree;
    }
}

TEST(FsExclusion, ExactlyTheSixPseudoTypes) {
    for (const char *t : {"autofs", "ctfs", "proc", "mntfs", "objfs", "devfs"})
        EXPECT_EQ(1, isExcludedFTYpe(t)) << t;
    for (const char *t : {"PROC", "procfs", "proc ", "", "devtmpfs", "ext4"})
        EXPECT_EQ(0, isExcludedFTYpe(t)) << t;
}

struct FsList : ::testing::Test {
    using Rows = std::vector<std::string>;
    void SetUp() override { erase_fs_container(); }
    void TearDown() override { erase_fs_container(), platform::set_host_root(""); }
    // Descriptions in list order; checks that indexes run 0, 1, 2, ...
    static Rows rows() {
        Rows out;
        for (const vorHost_fs_usage_t *n = FileSysUsageList; n; n = n->next) {
            EXPECT_EQ(static_cast<int>(out.size()), n->pFsUsage->index);
            out.emplace_back(n->pFsUsage->vorHoFileSysDesc);
        }
        return out;
    }
};

TEST_F(FsList, MountTablesGiveGaplessRowsRenumberedOnRefresh) {
    const struct {
        const char *tree;
        int result;
        Rows rows;
    } cases[] = {
        {"mixed", 0, {"/dev/sda1 On /", "tmpfs On /tmp"}}, // pseudo types, a vanished mount
        {"single", 1, {"tmpfs On /tmp"}},
        {"malformed", 1, {"/dev/sda1 On /"}}, // the scan ends at the bad line
        {"no-such-root", 0, {}},
    };
    for (const auto &c : cases) {
        use_fixture(std::string("fs/") + c.tree);
        erase_fs_container();
        EXPECT_EQ(c.result, populate_filesystem_list()) << c.tree;
        EXPECT_EQ(c.rows, rows()) << c.tree;
    }
}

TEST_F(FsList, LongDescriptionsAreCut) {
    const std::string fits(249, 'd'), too_long(300, 'e');
    EXPECT_EQ(1, get_fs_usage("/", fits.c_str(), "ext4"));
    EXPECT_EQ(1, get_fs_usage("/", too_long.c_str(), "ext4"));
    EXPECT_EQ((Rows{fits + " On /", too_long.substr(0, 254)}), rows());
    EXPECT_EQ(254, FileSysUsageList->next->pFsUsage->vorHoFileSysDesc_len);
}

// Values by row and code; the description's bytes go out without a NUL.
TEST_F(FsList, ReadFsysEntryByRowAndCode) {
    for (const char *desc : {"dev0 On /a", "dev1 On /b"}) {
        fs_usage *u = new fs_usage();
        u->fsu_totalMB = 100, u->fsu_usedMB = 41, u->fsu_files = 5, u->fsu_ffree = 7;
        strcpy(u->vorHoFileSysDesc, desc);
        u->vorHoFileSysDesc_len = 10;
        ASSERT_EQ(1, add_to_container(u));
    }
    int32_t v = -99;
    EXPECT_EQ(1, ReadFsysEntry(1, FSYS_USED_MB, &v));
    EXPECT_EQ(41, v);
    char buf[12];
    memset(buf, 'X', sizeof(buf));
    EXPECT_EQ(1, ReadFsysEntry(1, FSYS_DESC, buf));
    EXPECT_EQ("dev1 On /bX", std::string(buf, 11));
    v = -99;
    EXPECT_EQ(0, ReadFsysEntry(1, 8, &v) + ReadFsysEntry(1, 0, &v) + ReadFsysEntry(2, 1, &v));
    EXPECT_EQ(-99, v) << "nothing written on failure";
}

} // namespace
